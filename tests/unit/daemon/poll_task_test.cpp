// The poll task as a thread, with a list and an agent of the test's own, for faults between two of
// its steps. The end-to-end tests cover the rest.
#include "files/poll_task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "daemon/base/thread_entry.h"

namespace tally {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class FakeAgent final : public Agent {
 public:
  bool connect() override { return true; }
  bool check_connection() override {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    alarms_blocked = sigismember(&blocked, SIGALRM) == 1;
    checks += 1;
    return reachable;
  }
  std::uint32_t up_time() override { return 0; }
  AgentClient& client() override { return reinterpret_cast<AgentClient&>(*this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return none_; }

  std::atomic<bool> reachable{true};
  std::atomic<bool> alarms_blocked{false};
  std::atomic<int> checks{0};

 private:
  CollectionOps none_;
};

// A list of collections that are due until they have been polled, which finds no files and no
// operations.
class FakeList final : public DueList {
 public:
  std::optional<std::int32_t> earliest_due() const override {
    if (ending) pthread_exit(nullptr);
    const bool any = due > 0;
    if (calls_to_pause > 0 && --calls_to_pause == 0) {
      pausing = true;
      std::this_thread::sleep_for(100ms);
    }
    return any ? std::optional(0) : std::nullopt;
  }
  std::int32_t interval() const override { return 60; }
  void begin_pass() override {}
  unsigned sweep(std::int32_t /*interval*/,
                 const std::function<bool(const CollectionRecord&)>& poll) override {
    CollectionRecord record{};
    record.index = 4'000'000'000;
    unsigned polled = 0;
    for (bool more = true; more && due > 0; ++polled, ++polls, --due) more = poll(record);
    return polled;
  }

  std::atomic<bool> ending{false};
  std::atomic<int> due{0};
  std::atomic<int> polls{0};
  mutable std::atomic<int> calls_to_pause{0};
  mutable std::atomic<bool> pausing{false};
};

class PollTaskTest : public testing::Test {
 protected:
  void start() {
    entry_.context = &task_;
    ASSERT_EQ(pthread_create(&entry_.thread, nullptr, tapd_poll_task, &entry_), 0);
  }
  void TearDown() override {
    list_.ending = true;  // which the task sees before its next wait, whatever it does now
    entry_.wake();
    pthread_join(entry_.thread, nullptr);
  }
  template <class Condition>
  static bool soon(Condition condition) {
    const auto end = Clock::now() + 20s;
    while (!condition()) {
      if (Clock::now() > end) return false;
      std::this_thread::yield();
    }
    return true;
  }

  ThreadEntry entry_;
  FakeList list_;
  FakeAgent agent_;
  PollTask task_{list_, agent_};
};

// A collection is created after the task has read the due time and before it waits.
TEST_F(PollTaskTest, LosesNoWakeUpBeforeTheWait) {
  start();
  std::this_thread::sleep_for(50ms);  // the task waits
  list_.calls_to_pause = 2;           // it checks for work, then for how long to wait
  entry_.wake();
  ASSERT_TRUE(soon([&] { return list_.pausing.load(); }));
  list_.due = 1;
  entry_.wake();
  EXPECT_TRUE(soon([&] { return list_.polls > 0; }));
  EXPECT_TRUE(agent_.alarms_blocked);
}

// While the agent is away, something is always due. The task tries it at most once a second however
// often somebody signals, and not before the pause is over if nobody does.
TEST_F(PollTaskTest, TriesAnAbsentAgentPatiently) {
  agent_.reachable = false;
  list_.due = 1;  // before the task looks: a signal after its first try would end its pause
  const auto begun = Clock::now();
  start();
  ASSERT_TRUE(soon([&] { return agent_.checks > 0; }));
  std::this_thread::sleep_for(1500ms);
  EXPECT_EQ(agent_.checks, 1);
  for (int i = 0; i < 250; ++i) {
    entry_.wake();
    std::this_thread::sleep_for(10ms);
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begun);
  EXPECT_GE(agent_.checks, 3);
  EXPECT_LE(agent_.checks, 1 + seconds.count());
  EXPECT_EQ(list_.polls, 0);
  agent_.reachable = true;
  entry_.wake();
  EXPECT_TRUE(soon([&] { return list_.polls == 1; }));
}

// A hanging agent must not keep everybody waiting until all collections have been tried.
TEST(PollPass, EndsInTimeAndLeavesTheOthersDue) {
  FakeList list;
  FakeAgent agent;
  list.due = 3;
  for (const int polled : {1, 2, 3, 3}) {
    poll_pass(list, agent, 0s);
    EXPECT_EQ(list.polls, polled);
  }
}

}  // namespace
}  // namespace tally
