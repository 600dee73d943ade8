// The poll task as a thread, with a real registry and a fake agent, for faults between two of its
// steps. The end-to-end tests cover the rest.
#include "files/poll_task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "daemon/base/collection_types.h"
#include "daemon/registry.h"

namespace tally {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kFarIndex = 4'000'000'000;  // no such files

class FakeAgent final : public Agent {
 public:
  bool connect() override { return true; }
  bool check_connection() override {
    if (ending) pthread_exit(nullptr);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    alarms_blocked = sigismember(&blocked, SIGALRM) == 1;
    checks += 1;
    return reachable;
  }
  std::uint32_t up_time() override { return 0; }
  AgentClient& client() override { return reinterpret_cast<AgentClient&>(*this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return none_; }

  std::atomic<bool> ending{false};
  std::atomic<bool> reachable{true};
  std::atomic<bool> alarms_blocked{false};
  std::atomic<int> checks{0};

 private:
  CollectionOps none_;
};

// The registry, counting the polls that it asks for. They find no files and no operations.
class CountingList final : public DueList {
 public:
  explicit CountingList(Registry& registry) : registry_(registry) {}
  std::optional<std::int32_t> earliest_due() const override {
    const auto due = registry_.earliest_due();
    if (calls_to_pause > 0 && --calls_to_pause == 0) {
      pausing = true;
      std::this_thread::sleep_for(100ms);
    }
    return due;
  }
  std::int32_t interval() const override { return registry_.interval(); }
  void begin_pass() override { registry_.begin_pass(); }
  unsigned sweep(std::int32_t interval,
                 const std::function<bool(const CollectionRecord&)>& poll) override {
    return registry_.sweep(interval, [&](const CollectionRecord& record) {
      polls += 1;
      return poll(record);
    });
  }

  mutable std::atomic<int> calls_to_pause{0};
  mutable std::atomic<bool> pausing{false};
  std::atomic<int> polls{0};

 private:
  Registry& registry_;
};

class PollTaskTest : public testing::Test {
 protected:
  void SetUp() override {
    entry_.context = &task_;
    ASSERT_EQ(pthread_create(&entry_.thread, nullptr, tapd_poll_task, &entry_), 0);
  }
  void TearDown() override {
    agent_.ending = true;
    create(1);  // something due, so that it looks at the agent
    registry_.wake_poll_task();
    pthread_join(entry_.thread, nullptr);
    registry_.free_all();
  }
  void create(std::uint32_t number) {
    const RegistryLock lock(registry_);
    ASSERT_NE(registry_.new_collection(kHost, kFarIndex + number), nullptr);
  }
  template <class Condition>
  static bool soon(Condition condition) {
    const auto end = Clock::now() + 5s;
    while (!condition()) {
      if (Clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  ThreadEntry entry_;
  Registry registry_{entry_};
  CountingList list_{registry_};
  FakeAgent agent_;
  PollTask task_{list_, agent_};
};

// A collection is created after the task has read the due time and before it waits.
TEST_F(PollTaskTest, LosesNoWakeUpBeforeTheWait) {
  std::this_thread::sleep_for(50ms);  // the task waits
  list_.calls_to_pause = 2;           // it checks for work, then for how long to wait
  registry_.wake_poll_task();
  ASSERT_TRUE(soon([&] { return list_.pausing.load(); }));
  create(1);
  EXPECT_TRUE(soon([&] { return list_.polls > 0; }));
  EXPECT_TRUE(agent_.alarms_blocked);
}

// While the agent is away, something is always due. The task tries it at most once a second however
// often somebody signals, and not before the pause is over if nobody does.
TEST_F(PollTaskTest, TriesAnAbsentAgentPatiently) {
  agent_.reachable = false;
  create(1);
  ASSERT_TRUE(soon([&] { return agent_.checks > 0; }));
  const auto first = Clock::now();
  std::this_thread::sleep_for(1500ms);
  EXPECT_EQ(agent_.checks, 1);
  for (int i = 0; i < 250; ++i) {
    registry_.wake_poll_task();
    std::this_thread::sleep_for(10ms);
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - first);
  EXPECT_GE(agent_.checks, 3);
  EXPECT_LE(agent_.checks, 1 + seconds.count());
  EXPECT_EQ(list_.polls, 0);
  agent_.reachable = true;
  registry_.wake_poll_task();
  EXPECT_TRUE(soon([&] { return list_.polls == 1; }));
}

// A hanging agent must not keep everybody waiting until all collections have been tried.
TEST(PollPass, EndsInTimeAndLeavesTheOthersDue) {
  ThreadEntry nobody;
  Registry registry(nobody);
  CountingList list(registry);
  FakeAgent agent;
  for (std::uint32_t number = 1; number <= 3; ++number) {
    const RegistryLock lock(registry);
    ASSERT_NE(registry.new_collection(kHost, kFarIndex + number), nullptr);
  }
  for (const int polled : {1, 2, 3, 3}) {
    poll_pass(list, agent, 0s);
    EXPECT_EQ(list.polls, polled);
  }
  registry.free_all();
}

}  // namespace
}  // namespace tally
