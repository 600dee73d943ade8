// The list of collections: its order, what a pass polls, and running out of memory.
#include "daemon/registry.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <random>
#include <vector>

#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/messages.h"
#include "support/allocations.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

// New collections remove their files, in a directory that others use: no collection of a living
// daemon has an index like these.
constexpr std::uint32_t kFarIndex = 4'000'000'000;

// The indexes in list order, taken from the listing.
std::vector<std::uint32_t> order(Registry& registry) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* stream = open_memstream(&text, &size);
  registry.list(stream, 0);
  std::fclose(stream);
  std::vector<std::uint32_t> indexes;
  for (const char* at = text; (at = std::strstr(at, "INDEX: ")); ++at) {
    indexes.push_back(static_cast<std::uint32_t>(std::strtoul(at + 7, nullptr, 10)));
  }
  std::free(text);
  return indexes;
}

class RegistryTest : public testing::Test {
 protected:
  void SetUp() override { take_log(); }
  void TearDown() override { registry_.free_all(); }

  CollectionRecord* add(std::uint32_t index, std::int32_t due) {
    CollectionRecords fresh{{{0, 0, due, 0}, kHost, index}};
    CollectionRecord* const record = &fresh.front();
    const RegistryLock lock(registry_);
    registry_.insert_in_order(std::move(fresh));
    return record;
  }
  ThreadEntry waker_;
  Registry registry_{waker_};
};

TEST_F(RegistryTest, InsertsNewerBeforeOlderOfOneTime) {
  std::uint32_t index = 0;
  for (const std::int32_t due : {50, 50, 40, 60, 50, 60, 40}) add(++index, due);
  EXPECT_EQ(order(registry_), (std::vector<std::uint32_t>{7, 3, 5, 2, 1, 6, 4}));
  EXPECT_EQ(registry_.earliest_due(), 40);
  registry_.free_all();
  EXPECT_EQ(registry_.earliest_due(), std::nullopt);
  add(1, -5);  // as from a negative interval, for a collection never polled
  EXPECT_EQ(registry_.earliest_due(), -5);
}

// One insertion pass, literally: from the second record on, one that is due before its predecessor
// goes back to just after the nearest that is due strictly earlier.
void insertion_pass(std::list<CollectionRecord*>& list) {
  const auto due = [](const auto& at) { return (*at)->schedule.next_due; };
  if (list.empty()) return;
  for (auto at = std::next(list.begin()); at != list.end();) {
    const auto next = std::next(at);
    if (due(at) < due(std::prev(at))) {
      auto to = at;
      while (to != list.begin() && due(std::prev(to)) >= due(at)) --to;
      list.splice(to, list, at);
    }
    at = next;
  }
}

TEST_F(RegistryTest, SortsAsOneInsertionPassDoes) {
  std::minstd_rand random(6);
  for (int round = 0; round < 3000; ++round) {
    std::list<CollectionRecord*> model;
    const auto expect_same_order = [&] {
      std::vector<std::uint32_t> expected;
      for (const CollectionRecord* record : model) expected.push_back(record->index);
      ASSERT_EQ(order(registry_), expected);
    };
    const auto size = random() % 25;
    for (std::uint32_t i = 0; i < size; ++i) model.push_back(add(i, static_cast<std::int32_t>(i)));
    for (int pass = 0; pass < 3; ++pass) {
      const auto range = 1 + random() % 12;
      for (CollectionRecord* record : model) {
        if (random() % 3 == 0) continue;
        record->schedule.next_due = static_cast<std::int32_t>(random() % range);
      }
      registry_.re_sort();
      insertion_pass(model);
      expect_same_order();
    }
    // Records can be unlinked anywhere, and the rest stays.
    while (!model.empty()) {
      ASSERT_EQ(registry_.earliest_due(), model.front()->schedule.next_due);
      auto at = model.begin();
      std::advance(at, random() % model.size());
      {
        const RegistryLock lock(registry_);
        (void)registry_.unlink(**at);
      }
      model.erase(at);
      expect_same_order();
    }
    ASSERT_EQ(registry_.earliest_due(), std::nullopt);
  }
}

TEST_F(RegistryTest, AdoptsOnceAndTellsWhenItCannot) {
  for (const std::uint32_t type : {kHost, kHost, kPdist}) {
    EXPECT_TRUE(registry_.adopt(type, kFarIndex));
  }
  EXPECT_EQ(order(registry_).size(), 2U);
  const LogLine no_memory = warning_line("Tallyd malloc() failure.");
  allocations = {1};
  EXPECT_FALSE(registry_.adopt(kHost, kFarIndex + 1));
  EXPECT_EQ(take_log(), std::vector{no_memory});
  constexpr auto kCreate = static_cast<std::uint32_t>(MessageType::create);
  allocations = {1};
  EXPECT_TRUE(handle_message(registry_, {kCreate, kMatrix, kFarIndex + 2}));
  const auto refusal = warning_line("msg_create_coll(): Unable to create new collection.");
  EXPECT_EQ(take_log(), (std::vector{no_memory, refusal}));
  EXPECT_EQ(order(registry_).size(), 2U);
}

TEST_F(RegistryTest, SweepsWhatIsDueOnceAPass) {
  const std::int32_t now = schedule_seconds();
  CollectionRecord* viewed = add(1, now - 10);
  viewed->schedule = {now - 30, 0, now - 10, kViewed};
  CollectionRecord* left = add(2, now - 5);
  left->schedule = {now - 60, 0, now - 5, kViewed};
  add(3, now);
  add(4, now + 100);
  std::vector<std::uint32_t> polled;
  const auto poll = [&](const CollectionRecord& record) {
    polled.push_back(record.index);
    return polled.size() != 2;  // enough for now
  };
  registry_.begin_pass();
  EXPECT_EQ(registry_.sweep(60, poll), 2U);
  EXPECT_EQ(registry_.sweep(60, poll), 1U);
  EXPECT_EQ(polled, (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(order(registry_), (std::vector<std::uint32_t>{1, 4, 3, 2}));
  EXPECT_NEAR(viewed->schedule.next_due, now + 60, 1);
  EXPECT_NEAR(left->schedule.next_due, now + 3600, 1);
  EXPECT_EQ(left->schedule.flags, kPolledInThisPass);
  EXPECT_EQ(registry_.earliest_due(), viewed->schedule.next_due);
  registry_.set_interval(200);
  registry_.apply_interval();
  EXPECT_EQ(order(registry_), (std::vector<std::uint32_t>{4, 1, 3, 2}));
  add(5, now - 20);  // became due meanwhile
  viewed->schedule.next_due = now - 30;
  registry_.re_sort();
  EXPECT_EQ(registry_.sweep(60, poll), 1U);
  EXPECT_EQ(polled.back(), 5U);
  EXPECT_EQ(registry_.sweep(60, poll), 0U);
  registry_.begin_pass();
  EXPECT_EQ(registry_.sweep(60, poll), 1U);
  EXPECT_EQ(polled.back(), 1U);
}

}  // namespace
}  // namespace tally
