#include "minitapd/live_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
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
      {"on into the next index", 4, mac(2), 3, {{4, 3}, {9, 1}, {9, 2}}},
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

// A client may ask behind keys that no row can have.
TEST(LiveSource, FindsItsPlaceBehindAnyKey) {
  LiveSource source({.max_rows = 1000, .max_frame_octets = 0, .descr = "", .own_address = {}});
  for (std::size_t i = 0; i < kTableCount; ++i) source.add_control(static_cast<Table>(i), 1, "");
  // VLAN 257; DSCP 10; 10.0.0.1 to 10.0.0.2; indexes 11 (IP), 32 (TCP), 106 (HTTP).
  source.count_frame(frame_between(mac(1), mac(2),
                                   "8100 0101 0800 45280028 00010000 40060000 0a000001 0a000002"
                                   "0050c001"),
                     60);
  const std::string low("\x0a\x00\x00\x01", 4);
  const std::string none;
  const struct {
    std::string_view label;
    Table table;
    Key start;
    std::size_t behind;  // rows found
    bool exact = false;
  } cases[] = {
      {"protocol 266 compares as 0a 01: before 11", Table::nlhost, {{266}, {}}, 2},
      {"protocol 267 compares as 0b 01: behind all of 11", Table::nlhost, {{267}, {}}, 0},
      {"the shorter address is before", Table::nlhost, {{11}, {"\xff\xff\xff"}}, 2},
      {"the longer address is behind", Table::nlhost, {{11}, {low + "x"}}, 0},
      {"this network host", Table::nlhost, {{11}, {low}}, 1, true},
      {"no destination is before all", Table::nlmatrix, {{11}, {low, none}}, 1},
      {"VLAN 1 is before 257", Table::vlan, {{1}, {}}, 1},
      {"VLAN 512 is behind 257", Table::vlan, {{512}, {}}, 0},
      {"VLAN 65793 is no 257", Table::vlan, {{65793}, {}}, 0},
      {"this VLAN", Table::vlan, {{257}, {}}, 0, true},
      {"priorities begin behind -1", Table::prio, {{-1}, {}}, 8},
      {"priority 0", Table::prio, {{0}, {}}, 7, true},
      {"priority 263 is no 7", Table::prio, {{263}, {}}, 0},
      {"this group", Table::dsstats, {{10}, {}}, 0, true},
      {"group 266 is behind", Table::dsstats, {{266}, {}}, 0},
      {"protocol 267 is behind 106 in its group", Table::dspdist, {{10, 267}, {}}, 0},
      {"protocol 255 of the group before", Table::dspdist, {{9, 267}, {}}, 4},
      {"this protocol", Table::dspdist, {{10, 32}, {}}, 1, true},
      {"group 266 compares as 0a 01", Table::dshost, {{266}, {}}, 0},
      {"group 265 compares as 09 01", Table::dshost, {{265}, {}}, 2},
      {"this host", Table::dshost, {{10, 11, 4}, {low + std::string(16, '\0')}}, 1, true},
      {"bytes 17 to 20 are of no row",
       Table::dshost,
       {{10, 11, 4}, {low + std::string(15, '\0') + "x"}},
       1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<Row> rows;
    source.rows_after(c.table, 1, c.start, 100, rows);
    EXPECT_EQ(rows.size(), c.behind);
    EXPECT_EQ(source.row_at(c.table, 1, c.start).has_value(), c.exact);
    EXPECT_FALSE(source.row_at(c.table, 2, c.start).has_value()) << "an index that is not there";
  }
}

// Reading between the counting must not change what leaves, nor the order.
TEST(AgingTable, ReadsAnOrderedTableAtAnyTime) {
  AgingTable<2, 1> often(50);
  AgingTable<2, 1> once(50);
  const auto read = [](auto& table) {
    std::vector<std::pair<AgingTable<2, 1>::Key, std::uint64_t>> out;
    table.for_each_after(nullptr, 1000, [&out](const auto& key, const auto& entry) {
      out.emplace_back(key, entry.counters[0]);
    });
    return out;
  };
  std::minstd_rand random(3);
  for (std::uint32_t i = 0; i < 5000; ++i) {
    const AgingTable<2, 1>::Key key = {static_cast<std::uint8_t>(random() % 3),
                                       static_cast<std::uint8_t>(random() % 40)};
    often.touch(key, i).counters[0] += 1;
    once.touch(key, i).counters[0] += 1;
    if (random() % 7 == 0) {
      EXPECT_TRUE(std::ranges::is_sorted(read(often)));
    }
  }
  EXPECT_EQ(read(often), read(once));
  EXPECT_EQ(often.use().inserts - often.use().deletes, 50U);
  EXPECT_GT(often.use().deletes, 0U);
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
