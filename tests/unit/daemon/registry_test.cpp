// The list of collections: its order, its locks, what it tells the poll task.
#include "daemon/registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "daemon/clock.h"
#include "daemon/collection_types.h"
#include "daemon/messages.h"
#include "support/allocations.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

// New collections remove their files, in a directory that is not ours: no collection of a living
// daemon has an index like these.
constexpr std::uint32_t kFarIndex = 4'000'000'000;

std::string listing(Registry& registry, std::int32_t now = 0) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* stream = open_memstream(&text, &size);
  registry.list(stream, now);
  std::fclose(stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

// The indexes in list order.
std::vector<std::uint32_t> order(Registry& registry) {
  std::vector<std::uint32_t> indexes;
  const std::string text = listing(registry);
  for (std::size_t at = 0; (at = text.find("INDEX: ", at)) != std::string::npos; ++at) {
    indexes.push_back(static_cast<std::uint32_t>(std::stoul(text.substr(at + 7))));
  }
  return indexes;
}

class RegistryTest : public testing::Test {
 protected:
  void SetUp() override {
    registry_.reset();
    take_log();
  }
  void TearDown() override { registry_.free_all(); }

  // The list frees what is still in it.
  CollectionRecord* add(std::uint32_t index, std::int32_t due, std::uint32_t type = kHost) {
    auto* record = new CollectionRecord;
    record->type = type;
    record->index = index;
    record->schedule.next_due = due;
    const RegistryLock lock(registry_);
    registry_.insert_in_order(*record);
    return record;
  }
  bool handle(MessageType type, std::uint32_t collection, std::uint32_t index) {
    return handle_message(registry_, {static_cast<std::uint32_t>(type), collection, index});
  }

  ThreadEntry waker_;
  Registry registry_{waker_};
};

TEST_F(RegistryTest, InsertsNewerBeforeOlderOfOneTime) {
  EXPECT_EQ(registry_.earliest_due(), std::nullopt);
  const std::pair<std::uint32_t, std::int32_t> inserted[] = {{1, 50}, {2, 50}, {3, 40}, {4, 60},
                                                             {5, 50}, {6, 60}, {7, 40}};
  for (const auto& [index, due] : inserted) add(index, due);
  EXPECT_EQ(order(registry_), (std::vector<std::uint32_t>{7, 3, 5, 2, 1, 6, 4}));
  EXPECT_EQ(registry_.earliest_due(), 40);
  registry_.free_all();
  EXPECT_EQ(registry_.earliest_due(), std::nullopt);
  EXPECT_EQ(listing(registry_), "\n");
  add(1, -5);  // what a negative interval gives a collection that was never polled
  EXPECT_EQ(registry_.earliest_due(), -5);
}

// One insertion pass, as it is told: from the second record on, one that is due before its
// predecessor goes back behind the nearest that is due strictly earlier.
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
    const auto size = random() % 25;
    for (std::uint32_t i = 0; i < size; ++i) {
      // At the end of the list, in any order.
      CollectionRecord* record = add(i, static_cast<std::int32_t>(i));
      model.push_back(record);
    }
    std::vector<std::uint32_t> expected;
    for (int pass = 0; pass < 3; ++pass) {
      const auto range = 1 + random() % 12;
      for (CollectionRecord* record : model) {
        if (random() % 3 > 0) {
          record->schedule.next_due = static_cast<std::int32_t>(random() % range);
        }
      }
      registry_.re_sort();
      insertion_pass(model);
      expected.clear();
      for (const CollectionRecord* record : model) expected.push_back(record->index);
      ASSERT_EQ(order(registry_), expected);
    }
    // Back links: taking records out from anywhere leaves the rest.
    while (!model.empty()) {
      ASSERT_EQ(registry_.earliest_due(), model.front()->schedule.next_due);
      const auto at =
          std::next(model.begin(), static_cast<std::ptrdiff_t>(random() % model.size()));
      {
        const RegistryLock lock(registry_);
        registry_.unlink(**at);
      }
      std::erase(expected, (*at)->index);
      delete *at;
      model.erase(at);
      ASSERT_EQ(order(registry_), expected);
    }
    ASSERT_EQ(registry_.earliest_due(), std::nullopt);
  }
}

// Takes the lock in a thread of its own; false when it does not get it soon.
bool lock_is_free(Registry& registry) {
  const auto done = std::make_shared<std::atomic<bool>>(false);
  std::thread([&registry, done] {
    registry.begin_pass();
    *done = true;
  }).detach();
  for (int i = 0; i < 30 && !*done; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return *done;
}

// A registry for a thread that may wait for ever: never destroyed.
TEST_F(RegistryTest, FindGivesUpTheLockOnAHit) {
  static ThreadEntry waker;
  static auto& registry = *new Registry(waker);
  auto* record = new CollectionRecord;
  record->type = kMatrix;
  record->index = 7;
  {
    RegistryLock lock(registry);
    registry.insert_in_order(*record);
    EXPECT_EQ(registry.find(lock, kMatrix, 8), nullptr);
    EXPECT_EQ(registry.find(lock, kHost, 7), nullptr);
    EXPECT_FALSE(lock_is_free(registry));
  }
  EXPECT_TRUE(lock_is_free(registry));
  {
    RegistryLock lock(registry);
    EXPECT_EQ(registry.find(lock, kMatrix, 7), record);
    EXPECT_TRUE(lock_is_free(registry));
    lock.retake();
    lock.retake();
    EXPECT_FALSE(lock_is_free(registry));
  }
  EXPECT_TRUE(lock_is_free(registry));
}

TEST_F(RegistryTest, NewCollectionsAreDueBeforeTheTaskIsWoken) {
  add(1, 2'000'000'000);
  const std::int32_t before = now_seconds();
  const RegistryLock lock(registry_);
  const CollectionRecord* record = registry_.new_collection(kDsHost, kFarIndex);
  ASSERT_NE(record, nullptr);
  EXPECT_GE(registry_.earliest_due(), before);  // with the lock still held
  EXPECT_LE(registry_.earliest_due(), now_seconds());
  EXPECT_EQ(record->schedule.next_due, record->schedule.last_viewed);
  EXPECT_EQ(record->schedule.last_poll, 0);
  EXPECT_EQ(record->schedule.flags, 0U);
}

TEST_F(RegistryTest, AdoptsOnceAndTellsWhenItCannot) {
  EXPECT_TRUE(registry_.adopt(kHost, kFarIndex));
  EXPECT_TRUE(registry_.adopt(kHost, kFarIndex));
  EXPECT_TRUE(registry_.adopt(kPdist, kFarIndex));
  EXPECT_EQ(order(registry_).size(), 2U);
  {
    const FailingAllocation failing(0);
    EXPECT_FALSE(registry_.adopt(kHost, kFarIndex + 1));
  }
  {
    const FailingAllocation failing(0);
    EXPECT_TRUE(handle(MessageType::create, kMatrix, kFarIndex + 2));
  }
  EXPECT_EQ(take_log(),
            (std::vector{warning_line("Tallyd malloc() failure."),
                         warning_line("Tallyd malloc() failure."),
                         warning_line("msg_create_coll(): Unable to create new collection.")}));
  EXPECT_EQ(order(registry_).size(), 2U);
  EXPECT_TRUE(lock_is_free(registry_));
}

TEST_F(RegistryTest, SweepsWhatIsDueOnceAPass) {
  const std::int32_t now = now_seconds();
  CollectionRecord* viewed = add(1, now - 10);
  viewed->schedule.last_viewed = now - 30;
  viewed->schedule.flags = kViewed;
  CollectionRecord* left = add(2, now - 5);
  left->schedule.last_viewed = now - 60;
  left->schedule.flags = kViewed;
  add(3, now);
  add(4, now + 100);
  std::vector<std::uint32_t> polled;
  const auto poll = [&](const CollectionRecord& record) { polled.push_back(record.index); };
  registry_.begin_pass();
  EXPECT_EQ(registry_.sweep(60, poll), 3U);
  EXPECT_EQ(polled, (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(order(registry_), (std::vector<std::uint32_t>{1, 4, 2, 3}));
  EXPECT_NEAR(viewed->schedule.next_due, now + 60, 1);
  EXPECT_NEAR(left->schedule.next_due, now + 3600, 1);
  EXPECT_EQ(left->schedule.flags, kPolledInThisPass);
  EXPECT_EQ(registry_.earliest_due(), viewed->schedule.next_due);
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

TEST_F(RegistryTest, ListsForPeople) {
  add(70'000, 1'090, kNlMatrix)->schedule.last_poll = 1'000;
  add(3, 2'000, kDsMatrix);
  EXPECT_EQ(listing(registry_, 1'030),
            "\nINDEX: 70000, COLLECTION: Matrix (Net)"
            "\n   Time Since Last Poll: 30, Time Until Next Poll: 60"
            "\nINDEX: 3, COLLECTION: ILLEGAL VALUE!"
            "\n   Time Since Last Poll: 1030, Time Until Next Poll: 970\n");
}

// --- the handlers, where they change the list ---

TEST_F(RegistryTest, MessagesMoveCollections) {
  const std::int32_t now = now_seconds();
  CollectionRecord* viewed = add(kFarIndex, now + 500);
  viewed->schedule.last_poll = now - 20;
  viewed->schedule.flags = kViewed;
  add(kFarIndex + 1, now + 300);
  EXPECT_TRUE(handle(MessageType::set_interval, 100, 0));
  EXPECT_EQ(registry_.interval(), 100);
  EXPECT_EQ(registry_.earliest_due(), now + 80);
  EXPECT_EQ(order(registry_), (std::vector{kFarIndex, kFarIndex + 1}));
  EXPECT_TRUE(handle(MessageType::viewing, kHost, kFarIndex + 1));  // has no delta file
  EXPECT_EQ(order(registry_), (std::vector{kFarIndex + 1, kFarIndex}));
  EXPECT_LE(registry_.earliest_due(), now_seconds());
  EXPECT_TRUE(handle(MessageType::create, kHost, kFarIndex));  // anew
  EXPECT_EQ(viewed->schedule.last_poll, 0);
  EXPECT_LE(viewed->schedule.next_due, now_seconds());
  EXPECT_TRUE(handle(MessageType::destroy, kHost, kFarIndex));
  EXPECT_EQ(order(registry_), (std::vector{kFarIndex + 1}));
  EXPECT_TRUE(take_log().empty());
  EXPECT_FALSE(handle(MessageType::terminate, 0, 0));
  EXPECT_EQ(listing(registry_), "\n");
}

}  // namespace
}  // namespace tally
