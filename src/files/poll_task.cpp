#include "files/poll_task.h"

#include <csignal>
#include <ctime>

#include "daemon/base/clock.h"
#include "daemon/base/log.h"
#include "daemon/base/thread_entry.h"
#include "files/poll_engine.h"

namespace tally {
namespace {

constexpr int kConnectAttempts = 180;
constexpr timespec kConnectPause{5, 0};

// Seconds between attempts while the agent is away, and the minimum when somebody wakes us.
constexpr std::time_t kRetryPause = 5;
constexpr std::time_t kShortestRetryPause = 1;

// SIGALRM bounds the main thread's waits. Here it would only interrupt calls to the agent.
void leave_alarms_to_the_main_thread() {
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
}

bool connect_patiently(Agent& agent) {
  for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
    if (agent.connect()) return true;
    nanosleep(&kConnectPause, nullptr);
  }
  return false;
}

// Waits until the first collection is due or somebody signals. The due time is read with the mutex
// held, which wakers take too, so no signal is lost between reading and waiting.
void wait_until_due(ThreadEntry& entry, const DueList& collections) {
  const MutexLock lock(entry.mutex);
  if (const auto due = collections.earliest_due()) {
    entry.condition.wait_until(entry.mutex, monotonic_time(*due));
  } else {
    entry.condition.wait(entry.mutex);
  }
}

// Waits until it is time to try the agent again. A collection is due already, so only this wait
// keeps the task from spinning.
void wait_for_retry(ThreadEntry& entry) {
  timespec tried;
  clock_gettime(CLOCK_MONOTONIC, &tried);
  {
    const MutexLock lock(entry.mutex);
    entry.condition.wait_until(entry.mutex, timespec{tried.tv_sec + kRetryPause, tried.tv_nsec});
  }
  const timespec earliest{tried.tv_sec + kShortestRetryPause, tried.tv_nsec};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &earliest, nullptr);
}

}  // namespace

// The registry lock is held while a collection is polled, and a hanging agent may take 25 seconds a
// call. To keep that from adding up over thousands of collections, the pass ends after such a poll:
// messages get their turn, and the connection is checked before the next pass.
void poll_pass(DueList& collections, Agent& agent, std::chrono::seconds longest) {
  bool in_time = true;
  const std::int32_t interval = collections.interval();
  collections.begin_pass();
  const auto poll = [&](const CollectionRecord& collection) {
    const auto begun = std::chrono::steady_clock::now();
    (void)poll_tapd_collection(agent, collection);  // a failed one has put the old sample back
    in_time = std::chrono::steady_clock::now() - begun < longest;
    return in_time;
  };
  // A collection may have become due while the others were polled.
  while (collections.sweep(interval, poll) > 0 && in_time) {
  }
}

void* tapd_poll_task(void* thread_entry) {
  auto& entry = *static_cast<ThreadEntry*>(thread_entry);
  auto& task = *static_cast<PollTask*>(entry.context);
  leave_alarms_to_the_main_thread();
  if (!connect_patiently(task.agent)) {
    log_warning("tapd_poll_task: error creating RPC client handle!");
    return nullptr;
  }
  for (;;) {
    if (task.collections.earliest_due()) {
      if (!task.agent.check_connection()) {
        wait_for_retry(entry);
        continue;
      }
      poll_pass(task.collections, task.agent);
    }
    wait_until_due(entry, task.collections);
  }
}

}  // namespace tally
