#include "minitapd/packet.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace minitapd {
namespace {

// IPv4 and IPv6 headers with the length, protocol and fragment words left to the case.
std::string ip(std::string_view length, std::string_view fragment, std::string_view protocol,
               std::string_view rest, std::string_view version_and_size = "45") {
  return "0800 " + std::string(version_and_size) + " b8 " + std::string(length) + " 0001 " +
         std::string(fragment) + " 40 " + std::string(protocol) + " 0000 0a000001 0a000002 " +
         std::string(rest);
}

std::string ip6(std::string_view length, std::string_view next, std::string_view rest) {
  return "86dd 6b80 0000 " + std::string(length) + std::string(next) +
         "40 20010db8000000000000000000000001 20010db8000000000000000000000002 " +
         std::string(rest);
}

struct ParseCase {
  std::string_view label;
  std::string rest;   // from the type field on
  std::string found;  // the deepest protocol, DSCP of a network header, VLAN and priority
};

// What is seldom or broken; the usual frames are counted beside tshark. Local indexes are the
// agent's promise: a changed one would turn up in data files as another protocol.
const ParseCase kCases[] = {
    {"first fragment", ip("001c", "2000", "11", "00a1 c001"), "135 ether2.ip.udp.snmp dscp 46"},
    {"later fragment: what looks like ports is data", ip("001c", "2001", "11", "00a1 c001"),
     "33 ether2.ip.udp dscp 46"},
    {"IP options before the ports", ip("0020", "0000", "06", "01010101 0050 c001", "46"),
     "106 ether2.ip.tcp.http dscp 46"},
    {"IP header shorter than its least", ip("0028", "0000", "06", "0050 c001", "44"),
     "11 ether2.ip"},
    {"IP header beyond the capture", ip("0044", "0000", "06", "0050 c001", "4f"),
     "32 ether2.ip.tcp dscp 46"},
    {"IP of another version", ip("0028", "0000", "06", "0050 c001", "55"), "11 ether2.ip"},
    {"total length ends before the ports: they are padding", ip("0014", "0000", "06", "0050 c001"),
     "32 ether2.ip.tcp dscp 46"},
    {"total length shorter than the header", ip("0013", "0000", "06", "0050 c001"), "11 ether2.ip"},
    {"total length 0: cut by hardware", ip("0000", "0000", "06", "0050 c001"),
     "106 ether2.ip.tcp.http dscp 46"},
    {"unknown IP protocol", ip("001c", "0000", "fd", "0050 0050"), "11 ether2.ip dscp 46"},
    {"IPv6, all skippable headers before TCP",
     ip6("0040", "00",
         "2b 00 000000000000 2c 00 000000000000 33 00 0000 00000001"
         "3c 02 0000 00000001 0102030405060708 06 00 000000000000 01bb c001"),
     "171 ether2.ipv6.tcp.https dscp 46"},
    {"IPv6 hop-by-hop, routing, fragment, destination, TCP",
     ip6("0040", "00",
         "2b 00 000000000000 2c 00 000000000000 3c 00 0001 00000001"
         "06 01 000000000000 0102030405060708 01bb c001"),
     "171 ether2.ipv6.tcp.https dscp 46"},
    {"IPv6 authentication header of 12 octets",
     ip6("0040", "33", "11 01 0000 00000001 00000002 12b5 c001"),
     "203 ether2.ipv6.udp.vxlan dscp 46"},
    {"IPv6 authentication header shorter than it can be",
     ip6("0040", "33", "11 00 0000 00000001 0045 c001"), "12 ether2.ipv6 dscp 46"},
    {"IPv6 later fragment", ip6("0010", "2c", "11 00 0008 00000001 0035 c001 0008 0000"),
     "52 ether2.ipv6.udp dscp 46"},
    {"IPv6, more extension headers than a frame has",
     ip6("0060", "3c",
         "3c00000000000000 3c00000000000000 3c00000000000000 3c00000000000000 3c00000000000000"
         "3c00000000000000 3c00000000000000 3c00000000000000 0600000000000000 01bbc001"),
     "12 ether2.ipv6 dscp 46"},
    {"service tag outside a customer tag", "88a8 0fff 8100 2001 0806 0001",
     "10 ether2.arp vlan 4095/0"},
    {"a third tag is not looked behind", "8100 0001 8100 0002 8100 0003 0806", "1 ether2 vlan 1/0"},
    {"spanning tree in LLC", "0026 42 42 03 0000", "19 llc.stp"},
    {"unknown LLC", "0026 04 04 03", "2 llc"},
    {"SNAP", "0040 aa aa 03 00000c 2000 01", "21 snap.cdp"},
    {"unknown SNAP", "0040 aa aa 03 00000c 9999", "3 snap"},
    {"length without a payload", "0000", ""},
};

std::vector<std::uint8_t> bytes(std::string hex) {
  std::erase(hex, ' ');
  std::vector<std::uint8_t> out;
  for (std::size_t at = 0; at < hex.size(); at += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
  }
  return out;
}

std::string describe(const Packet& packet) {
  std::string text;
  if (const auto stack = packet.stack(); !stack.empty()) {
    text = std::to_string(stack.back()) + " " + path_of(*find_protocol(stack.back()));
  }
  if (packet.network) text += " dscp " + std::to_string(packet.network->dscp);
  if (!packet.tag) return text;
  return text + " vlan " + std::to_string(packet.tag->id) + "/" +
         std::to_string(packet.tag->priority);
}

TEST(Packet, FindsProtocolsAndTags) {
  for (const ParseCase& c : kCases) {
    const auto packet = parse_frame(bytes("02000000000b 02000000000a" + c.rest), 0xffffffffU);
    ASSERT_TRUE(packet.has_value()) << c.label;
    EXPECT_EQ(describe(*packet), c.found) << c.label;
    EXPECT_EQ(packet->octets, 0xffffffffU) << "no room for the check sequence";
  }
}

}  // namespace
}  // namespace minitapd
