// What the agent finds in a frame, and how it serves the rows that it makes of many. counts_test.py
// compares their counters with tshark's.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "minitapd/live_source.h"
#include "minitapd/packet.h"

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

std::string text(const std::string& hex) {
  const auto octets = bytes(hex);
  return {octets.begin(), octets.end()};
}

// Normalized, as keys are on the wire.
std::vector<Row> rows_after(LiveSource& source, Table table, std::int32_t index, const Key& start,
                            std::size_t limit) {
  std::vector<Row> rows;
  source.rows_after(table, index, start, limit, rows);
  for (Row& row : rows) normalize_key(table, row.key);
  return rows;
}

// Any key has a place among the rows, also one that no row has, or that belongs to another index.
TEST(LiveSource, ServesTheRowsBehindAKey) {
  using enum Table;
  LiveSource source({.max_rows = 9, .max_frame_octets = 0, .descr = {}, .own_address = {}});
  for (const std::int32_t index : {9, 4}) source.add_control(host, index, "");
  for (std::size_t i = 1; i < kTableCount; ++i) source.add_control(static_cast<Table>(i), 1, "");
  for (const char* const frame :
       {"020000000003 020000000003 9000", "020000000001 020000000001 9000",
        "020000000002 020000000002 9000"}) {
    source.count_frame(bytes(frame), 60);
  }
  source.count_frame(
      bytes("020000000002 020000000001 8100 0101 " + ip("0028", "0000", "06", "c001 0050")), 60);
  const auto station = [](const std::string& hex) { return Key{{}, {text("0200000000" + hex)}}; };
  const Key one = station("01"), two = station("02"), three = station("03");
  const std::string low = text("0a000001"), high = text("0a000002");
  const Key from{{46, 11, 4}, {low}}, to{{46, 11, 4}, {high}};
  const std::vector<Key> hosts{{{11}, {low}}, {{11}, {high}}};
  const std::vector<Key> group{{{46, 1}}, {{46, 11}}, {{46, 32}}, {{46, 106}}};
  const struct {
    const char* label;
    Table table;
    std::int32_t index;
    Key start;
    std::vector<Key> behind;
  } walks[] = {
      {"from the start", host, 4, {}, {one, two, three, one, two, three}},
      {"on into the next index", host, 4, two, {three, one, two, three}},
      {"behind the last row", host, 4, three, {one, two, three}},
      {"behind a key that no row has", host, 9, station("00"), {one, two, three}},
      {"an index that is not there", host, 5, two, {one, two, three}},
      {"behind the last row of all", host, 9, three, {}},
      {"a short key is before its extensions", host, 9, {{}, {"\2"}}, {one, two, three}},
      {"protocol 266 compares as 0a 01: before 11", nlhost, 1, {{266}}, hosts},
      {"protocol 267 compares as 0b 01: behind 11", nlhost, 1, {{267}}, {}},
      {"the shorter address is before", nlhost, 1, {{11}, {"\xff\xff\xff"}}, hosts},
      {"the longer address is behind", nlhost, 1, {{11}, {low + "x"}}, {}},
      {"no destination is before all", nlmatrix, 1, {{11}, {low}}, {{{11}, {low, high}}}},
      {"VLAN 512 is behind 257", vlan, 1, {{512}}, {}},
      {"VLAN 65793 does not pass for 257", vlan, 1, {{65793}}, {}},
      {"protocol 267 is behind 106 in its group", dspdist, 1, {{46, 267}}, {}},
      {"protocol 267 of the group before", dspdist, 1, {{45, 267}}, group},
      {"group 265 compares as 09 01", dshost, 1, {{265}}, {from, to}},
      {"bytes 17 to 20 are of no row",
       dshost,
       1,
       {{46, 11, 4}, {low + std::string(15, '\0') + "x"}},
       {to}},
  };
  for (auto [label, table, index, start, behind] : walks) {
    SCOPED_TRACE(label);
    normalize_key(table, start);
    for (const std::size_t limit : {9U, 1U, 0U}) {
      behind.resize(std::min(behind.size(), limit));
      const auto rows = rows_after(source, table, index, start, limit);
      ASSERT_EQ(rows.size(), behind.size());
      for (std::size_t i = 0; i < rows.size(); ++i) {
        normalize_key(table, behind[i]);
        EXPECT_EQ(rows[i].key, behind[i]);
      }
    }
    EXPECT_EQ(source.row_at(table, index, start).has_value(),
              index != 5 && (start == two || start == three));
  }
  for (std::size_t i = 0; i < kTableCount; ++i) {  // each row is found and leads to the next
    const auto table = static_cast<Table>(i);
    const auto rows = rows_after(source, table, 0, {}, 999);
    EXPECT_FALSE(rows.empty());
    for (std::size_t at = 0; at < rows.size(); ++at) {
      const auto& [index, key, counters, detail, time_mark, status] = rows[at];
      const auto found = source.row_at(table, index, key);
      EXPECT_TRUE(found && found->counters == counters);
      const auto next = rows_after(source, table, index, key, 1);
      EXPECT_TRUE(at + 1 < rows.size() ? next.at(0).key == rows[at + 1].key : next.empty());
    }
  }
}

}  // namespace
}  // namespace minitapd
