#include "minitapd/live_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "frames.h"
#include "minitapd/aging_table.h"

namespace minitapd {
namespace {

using ::testing::ElementsAre;
using testing::Frame;

std::string mac(int number) {
  return std::string("\x02\x00\x00\x00", 4) + static_cast<char>(number >> 8) +
         static_cast<char>(number);
}

Frame frame_between(const std::string& source, const std::string& dest, std::string_view rest) {
  Frame frame(dest.begin(), dest.end());
  frame.insert(frame.end(), source.begin(), source.end());
  const Frame tail = testing::bytes(rest);
  frame.insert(frame.end(), tail.begin(), tail.end());
  return frame;
}

std::vector<Row> walk(LiveSource& source, Table table, std::int32_t index, std::size_t batch) {
  std::vector<Row> all;
  Key start;
  for (;;) {
    std::vector<Row> rows;
    source.rows_after(table, index, start, batch, rows);
    EXPECT_LE(rows.size(), batch);
    if (rows.empty()) return all;
    for (Row& row : rows) {
      if (row.control_index != index) return all;
      start = row.key;
      all.push_back(std::move(row));
    }
  }
}

// The counts that a plain tally of the same frames gives, made without the code under test.
struct Tally {
  using Counters = std::vector<std::uint64_t>;
  std::map<std::string, Counters> hosts;
  std::map<std::string, Counters> pairs;
  std::map<int, Counters> protocols;
  std::uint64_t pkts = 0;
  std::uint64_t octets = 0;

  void add(const std::string& source, const std::string& dest, std::uint32_t length, bool bad,
           const std::vector<int>& stack) {
    const std::uint64_t size = std::max(length, 60U) + 4;
    for (const auto& station : {source, dest}) {
      if (!bad) hosts.try_emplace(station, Counters(7));
    }
    if (!bad) pairs.try_emplace(source + dest, Counters(3));
    if (const auto from = hosts.find(source); from != hosts.end()) {
      from->second[1] += 1;
      from->second[3] += size;
      from->second[4] += bad ? 1 : 0;
      if (!bad && dest == "\xff\xff\xff\xff\xff\xff") from->second[5] += 1;
      if (!bad && dest[0] == 1) from->second[6] += 1;
    }
    if (const auto pair = pairs.find(source + dest); pair != pairs.end()) {
      pair->second[0] += 1;
      pair->second[1] += size;
      pair->second[2] += bad ? 1 : 0;
    }
    if (bad) return;
    hosts[dest][0] += 1;
    hosts[dest][2] += size;
    pkts += 1;
    octets += size;
    for (const int index : stack) {
      auto& counters = protocols.try_emplace(index, Counters(2)).first->second;
      counters[0] += 1;
      counters[1] += size;
    }
  }
};

TEST(LiveSource, CountsAsAPlainTallyDoes) {
  const struct {
    std::string_view rest;
    std::vector<int> stack;
  } kinds[] = {{"9000 00", {1}},
               {"0806 0001", {1, 10}},
               {"0800 45000028 00010000 40060000 0a000001 0a000002 0050c001", {1, 11, 32, 106}},
               {"86dd 60000000 00083a40 00000000000000000000000000000001"
                "00000000000000000000000000000002 8000",
                {1, 12, 50}}};
  LiveSource source({.max_rows = 1000, .max_frame_octets = 1518, .descr = "", .own_address = {}});
  source.add_control(Table::host, 1, "LocalMgr");
  source.add_control(Table::matrix, 1, "LocalMgr");
  source.add_control(Table::pdist, 1, "LocalMgr");
  Tally tally;
  std::minstd_rand random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::string from = mac(static_cast<int>(random() % 23));
    std::string to = mac(static_cast<int>(random() % 23));
    if (random() % 10 == 0) to = "\xff\xff\xff\xff\xff\xff";
    if (random() % 10 == 0) to = std::string("\x01\x00\x5e\x00\x00\xfb", 6);
    const auto length = static_cast<std::uint32_t>(14 + random() % 1600);
    const auto& kind = kinds[random() % std::size(kinds)];
    source.count_frame(frame_between(from, to, kind.rest), length);
    tally.add(from, to, length, length > 1514, kind.stack);
  }
  source.count_frame({}, 0);  // shorter than an Ethernet header: left out

  for (const std::size_t batch : {1U, 7U, 100U}) {
    const auto hosts = walk(source, Table::host, 1, batch);
    ASSERT_EQ(hosts.size(), tally.hosts.size());
    auto expected = tally.hosts.begin();
    for (const Row& row : hosts) {
      EXPECT_EQ(row.key.addresses[0], expected->first);
      EXPECT_THAT(row.counters, ::testing::ElementsAreArray(expected->second));
      ++expected;
    }
    const auto pairs = walk(source, Table::matrix, 1, batch);
    ASSERT_EQ(pairs.size(), tally.pairs.size());
    expected = tally.pairs.begin();
    for (const Row& row : pairs) {
      EXPECT_EQ(row.key.addresses[0] + row.key.addresses[1], expected->first);
      EXPECT_TRUE(std::ranges::equal(expected->second, std::span(row.counters).first(3)));
      ++expected;
    }
    const auto protocols = walk(source, Table::pdist, 1, batch);
    ASSERT_EQ(protocols.size(), tally.protocols.size());
    auto protocol = tally.protocols.begin();
    for (const Row& row : protocols) {
      EXPECT_EQ(row.key.numbers[0], protocol->first);
      EXPECT_TRUE(std::ranges::equal(protocol->second, std::span(row.counters).first(2)));
      ++protocol;
    }
  }
  const Totals totals = source.pdist_totals(1);
  EXPECT_EQ(std::tuple(totals.status, totals.pkts, totals.octets),
            std::tuple(0, tally.pkts, tally.octets));
}

TEST(LiveSource, WalksFromAnyKeyIntoTheNextControlIndex) {
  LiveSource source({.max_rows = 1000, .max_frame_octets = 0, .descr = "", .own_address = {}});
  source.add_control(Table::host, 9, "later");
  source.add_control(Table::host, 4, "LocalMgr");
  EXPECT_THROW(source.add_control(Table::host, 9, "again"), std::invalid_argument);
  for (const int station : {3, 1, 2}) {
    source.count_frame(frame_between(mac(station), mac(station), "9000"), 60);
  }
  const struct {
    std::string_view label;
    std::int32_t index;
    std::string start;
    std::size_t limit;
    std::vector<std::pair<int, int>> rows;  // control index, station
  } cases[] = {
      {"from the start", 4, "", 2, {{4, 1}, {4, 2}}},
      {"on into the next index", 4, mac(2), 100, {{4, 3}, {9, 1}, {9, 2}, {9, 3}}},
      {"behind the last row", 4, mac(3), 2, {{9, 1}, {9, 2}}},
      {"behind a key that no row has",
       9,
       std::string("\x02\x00\x00\x00\x00\x01\x00", 6),
       100,
       {{9, 2}, {9, 3}}},
      {"an index that is not there", 5, mac(2), 100, {{9, 1}, {9, 2}, {9, 3}}},
      {"behind the last row of all", 9, mac(3), 100, {}},
      {"behind the last index", 10, "", 100, {}},
      {"no rows wanted", 4, "", 0, {}},
      {"a short key stands before its extensions", 9, "\x02", 1, {{9, 1}}},
      {"a long key is cut", 9, mac(1) + "x", 1, {{9, 2}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<Row> rows;
    source.rows_after(Table::host, c.index, {.numbers = {}, .addresses = {c.start}}, c.limit, rows);
    std::vector<std::pair<int, int>> found;
    for (const Row& row : rows) found.emplace_back(row.control_index, row.key.addresses[0].back());
    EXPECT_EQ(found, c.rows);
  }
  source.watch_capture([] { return CaptureState{.interface_index = 42, .dropped_frames = 0}; });
  std::vector<std::pair<int, std::string>> control;
  for (const ControlRow* row = source.control_row(Table::host, 0, true); row != nullptr;
       row = source.control_row(Table::host, control.back().first, true)) {
    control.emplace_back(row->index, row->owner);
    EXPECT_EQ(row->fields[0], 42U);
    EXPECT_EQ(row->fields[1], 3U);  // the table's size
  }
  EXPECT_THAT(control, ElementsAre(std::pair(4, "LocalMgr"), std::pair(9, "later")));
  EXPECT_NE(source.control_row(Table::host, 9, false), nullptr);
  EXPECT_EQ(source.control_row(Table::host, 5, false), nullptr);
  EXPECT_EQ(source.control_row(Table::vlan, 0, true), nullptr);
  EXPECT_NE(source.pdist_totals(4).status, 0);
}

TEST(AgingTable, LetsTheRowGoThatWasNotSeenForLongest) {
  AgingTable<2, 1> table(3);
  const auto keys = [&table] {
    std::vector<int> out;
    table.for_each_after(nullptr, 100, [&out](const auto& key, const auto& entry) {
      EXPECT_EQ(entry.counters[0], key[1]);
      out.push_back(key[1]);
    });
    return out;
  };
  const auto see = [&table](std::uint8_t key, std::uint32_t now) {
    table.touch({0, key}, now).counters[0] = key;
  };
  for (const int key : {30, 10, 20}) see(static_cast<std::uint8_t>(key), 1);
  EXPECT_THAT(keys(), ElementsAre(10, 20, 30));
  EXPECT_EQ(table.use().last_delete, 0U);
  see(30, 2);  // now 10 is the oldest
  see(40, 3);
  EXPECT_THAT(keys(), ElementsAre(20, 30, 40));
  EXPECT_EQ(table.use().last_delete, 3U);
  EXPECT_NE(table.find({0, 20}), nullptr);  // looking is not seeing
  see(5, 4);
  EXPECT_THAT(keys(), ElementsAre(5, 30, 40));
  EXPECT_EQ(table.find({0, 20}), nullptr);
  EXPECT_EQ(table.touch({0, 20}, 5).counters[0], 0U);  // comes back as a new row
  EXPECT_EQ(table.touch({0, 20}, 5).ordinal, 6U);
  for (int i = 0; i < 10000; ++i) {
    table.touch({static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}, 6);
    ASSERT_LE(table.use().rows, 3U);
  }
}

}  // namespace
}  // namespace minitapd
