#include "minitapd/packet.h"

#include <gtest/gtest.h>

#include <string>

#include "frames.h"

namespace minitapd {
namespace {

using testing::Frame;

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
  std::string stack;  // paths of the deepest protocol; "" = none
  int vlan = -1;
  int priority = -1;
  int dscp = -1;  // -1 = no network header
};

// What is seldom or broken; the usual frames are counted beside tshark.
const ParseCase kCases[] = {
    {"first fragment", ip("001c", "2000", "11", "00a1 c001"), "ether2.ip.udp.snmp", -1, -1, 46},
    {"later fragment: what looks like ports is data", ip("001c", "2001", "11", "00a1 c001"),
     "ether2.ip.udp", -1, -1, 46},
    {"IP options before the ports", ip("0020", "0000", "06", "01010101 0050 c001", "46"),
     "ether2.ip.tcp.http", -1, -1, 46},
    {"IP header shorter than its least", ip("0028", "0000", "06", "0050 c001", "44"), "ether2.ip"},
    {"IP header beyond the capture", ip("0044", "0000", "06", "0050 c001", "4f"), "ether2.ip.tcp",
     -1, -1, 46},
    {"IP of another version", ip("0028", "0000", "06", "0050 c001", "55"), "ether2.ip"},
    {"total length ends before the ports: they are padding", ip("0014", "0000", "06", "0050 c001"),
     "ether2.ip.tcp", -1, -1, 46},
    {"total length shorter than the header", ip("0013", "0000", "06", "0050 c001"), "ether2.ip"},
    {"total length 0: cut by hardware", ip("0000", "0000", "06", "0050 c001"), "ether2.ip.tcp.http",
     -1, -1, 46},
    {"unknown IP protocol", ip("001c", "0000", "fd", "0050 0050"), "ether2.ip", -1, -1, 46},
    {"IPv6, all skippable headers before TCP",
     ip6("0040", "00",
         "2b 00 000000000000 2c 00 000000000000 33 00 0000 00000001"
         "3c 02 0000 00000001 0102030405060708 06 00 000000000000 01bb c001"),
     "ether2.ipv6.tcp.https", -1, -1, 46},
    {"IPv6 hop-by-hop, routing, fragment, destination, TCP",
     ip6("0040", "00",
         "2b 00 000000000000 2c 00 000000000000 3c 00 0001 00000001"
         "06 01 000000000000 0102030405060708 01bb c001"),
     "ether2.ipv6.tcp.https", -1, -1, 46},
    {"IPv6 authentication header of 12 octets",
     ip6("0040", "33", "11 01 0000 00000001 00000002 0045 c001"), "ether2.ipv6.udp.tftp", -1, -1,
     46},
    {"IPv6 authentication header shorter than it can be",
     ip6("0040", "33", "11 00 0000 00000001 0045 c001"), "ether2.ipv6", -1, -1, 46},
    {"IPv6 later fragment", ip6("0010", "2c", "11 00 0008 00000001 0035 c001 0008 0000"),
     "ether2.ipv6.udp", -1, -1, 46},
    {"IPv6, more extension headers than a frame has",
     ip6("0060", "3c",
         "3c00000000000000 3c00000000000000 3c00000000000000 3c00000000000000 3c00000000000000"
         "3c00000000000000 3c00000000000000 3c00000000000000 0600000000000000 01bbc001"),
     "ether2.ipv6", -1, -1, 46},
    {"service tag outside a customer tag", "88a8 0fff 8100 2001 0806 0001", "ether2.arp", 4095, 0},
    {"a third tag is not looked behind", "8100 0001 8100 0002 8100 0003 0806", "ether2", 1, 0},
    {"spanning tree in LLC", "0026 42 42 03 0000", "llc.stp"},
    {"unknown LLC", "0026 04 04 03", "llc"},
    {"SNAP", "0040 aa aa 03 00000c 2000 01", "snap.cdp"},
    {"length without a payload", "0000", ""},
};

std::string top_of(const Packet& packet) {
  const auto stack = packet.stack();
  return stack.empty() ? std::string() : path_of(*find_protocol(stack.back()));
}

TEST(Packet, FindsProtocolsTagsAndAddresses) {
  for (const ParseCase& c : kCases) {
    SCOPED_TRACE(c.label);
    const Frame frame = testing::ethernet(testing::kStationB, testing::kStationA, c.rest);
    const auto packet = parse_frame(frame, 1000);
    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(top_of(*packet), c.stack);
    EXPECT_EQ(packet->tag ? packet->tag->id : -1, c.vlan);
    EXPECT_EQ(packet->tag ? packet->tag->priority : -1, c.priority);
    EXPECT_EQ(packet->network ? packet->network->dscp : -1, c.dscp);
    EXPECT_EQ(packet->octets, 1004U);
    EXPECT_EQ(packet->source, (MacAddress{2, 0, 0, 0, 0, 0x0a}));
    EXPECT_EQ(packet->dest, (MacAddress{2, 0, 0, 0, 0, 0x0b}));
    if (packet->network && packet->network->protocol == protocol::kIp) {
      EXPECT_EQ(packet->network->address_size, 4);
      EXPECT_EQ(packet->network->source[3], 1);
      EXPECT_EQ(packet->network->dest[3], 2);
    } else if (packet->network) {
      EXPECT_EQ(packet->network->address_size, 16);
      EXPECT_EQ(packet->network->source[15], 1);
      EXPECT_EQ(packet->network->dest[15], 2);
    }
  }
}

TEST(Packet, OctetsCountFcsAndPadding) {
  const std::pair<std::uint32_t, std::uint32_t> cases[] = {
      {14, 64}, {59, 64}, {60, 64}, {61, 65}, {1514, 1518}, {0xffffffffU, 0xffffffffU}};
  for (const auto& [captured, octets] : cases) EXPECT_EQ(frame_octets(captured), octets);
}

// Local indexes are the agent's promise; a changed one would turn up in data files as another
// protocol.
TEST(ProtocolDirectory, IndexesStay) {
  const std::pair<int, const char*> promised[] = {{1, "ether2"},
                                                  {2, "llc"},
                                                  {3, "snap"},
                                                  {10, "ether2.arp"},
                                                  {11, "ether2.ip"},
                                                  {12, "ether2.ipv6"},
                                                  {30, "ether2.ip.icmp"},
                                                  {32, "ether2.ip.tcp"},
                                                  {33, "ether2.ip.udp"},
                                                  {50, "ether2.ipv6.icmp6"},
                                                  {106, "ether2.ip.tcp.http"},
                                                  {135, "ether2.ip.udp.snmp"},
                                                  {171, "ether2.ipv6.tcp.https"},
                                                  {203, "ether2.ipv6.udp.vxlan"}};
  for (const auto& [index, path] : promised) {
    const Protocol* found = find_protocol(static_cast<LocalIndex>(index));
    ASSERT_NE(found, nullptr) << path;
    EXPECT_EQ(path_of(*found), path);
  }
  for (const Protocol& p : protocols()) {
    const Protocol* again = child_of(p.parent, p.selector);
    ASSERT_NE(again, nullptr) << p.name;
    EXPECT_EQ(again->local_index, p.local_index);
  }
}

}  // namespace
}  // namespace minitapd
