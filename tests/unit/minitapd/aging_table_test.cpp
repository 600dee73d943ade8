#include "minitapd/aging_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace minitapd {
namespace {

// A full table lets the row go that was not seen for longest; reading between the counting changes
// neither that nor the order of the keys.
TEST(AgingTable, DoesWhatAListOfItsRowsDoes) {
  using Key = AgingTable<2, 1>::Key;
  struct Seen {
    Key key;
    std::uint64_t count;
    std::uint32_t ordinal;
  };
  constexpr std::size_t kRows = 150;
  AgingTable<2, 1> table(kRows);
  std::vector<Seen> model;  // the one last seen at the end
  std::uint32_t inserts = 0;
  std::uint32_t last_delete = 0;
  std::minstd_rand random(3);
  for (std::uint32_t now = 1; now <= 20000; ++now) {
    const Key key = {static_cast<std::uint8_t>(random() % 3),
                     static_cast<std::uint8_t>(random() % 70)};
    auto row = std::ranges::find(model, key, &Seen::key);
    if (row != model.end()) {
      std::rotate(row, row + 1, model.end());
    } else {
      if (model.size() == kRows) {
        model.erase(model.begin());
        last_delete = now;
      }
      model.push_back({key, 0, ++inserts});
    }
    table.touch(key, now).counters[0] += 1;
    model.back().count += 1;
    ASSERT_EQ(table.find(key)->ordinal, model.back().ordinal);
    ASSERT_NE(table.find(model.front().key), nullptr);  // looking is not seeing
    ASSERT_EQ(table.use().rows, model.size());
    ASSERT_EQ(table.use().inserts, inserts);
    ASSERT_EQ(table.use().last_delete, last_delete);
    if (random() % 7 != 0) continue;
    std::map<Key, std::uint64_t> expected, found;
    for (const auto& [seen, count, ordinal] : model) expected[seen] = count;
    table.for_each_after(nullptr, 1000, [&](const Key& next, const auto& entry) {
      EXPECT_TRUE(found.empty() || found.rbegin()->first < next);
      found[next] = entry.counters[0];
    });
    ASSERT_EQ(found, expected);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(table.use().deletes, inserts - kRows);
}

}  // namespace
}  // namespace minitapd
