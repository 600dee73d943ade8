// A bound on how long one call to the agent may last.
//
// The RPC library counts its time-out for every read, so a peer that sends a byte now and then
// holds a call for ever. This watch is a thread that sleeps on the side and shuts the connection
// down when a call has lasted too long; the library then reports the call as failed.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "daemon/mutex.h"

namespace tally {

// CallWatch watches the calls over one socket, which it borrows. begin, end and rest belong to the
// thread that makes the calls.
class CallWatch {
 public:
  // Starts the thread. watching() is false when that failed.
  CallWatch(int socket, std::int64_t most_nanoseconds);
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

  bool watching() const { return started_; }

  // begin and end enclose a call. They cost two stores; the thread wakes for the first call only.
  void begin();
  void end() { deadline_.store(kNone); }

  // rest sends the thread to sleep without a time-out until the next call. Without it, it would
  // wake up once more when the deadline of a call that ended long ago passes.
  void rest();

 private:
  static constexpr std::int64_t kNone = 0;

  static void* run(void* self);
  void watch();

  const int socket_;
  const std::int64_t most_nanoseconds_;
  std::atomic<std::int64_t> deadline_{kNone};  // of the call at hand, on CLOCK_MONOTONIC
  std::atomic<bool> asleep_{false};            // waits without a time-out
  Mutex mutex_;
  Condition condition_;
  bool ending_ TALLY_GUARDED_BY(mutex_) = false;
  bool started_ = false;
  pthread_t thread_{};
};

}  // namespace tally
