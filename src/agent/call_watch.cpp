#include "agent/call_watch.h"

#include <sys/socket.h>

#include <csignal>
#include <ctime>

namespace tally {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

std::int64_t monotonic_now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

}  // namespace

CallWatch::CallWatch(int socket, std::int64_t most_nanoseconds)
    : socket_(socket), most_nanoseconds_(most_nanoseconds) {
  // No signal is this thread's business.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  started_ = pthread_create(&thread_, nullptr, run, this) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

CallWatch::~CallWatch() {
  if (!started_) return;
  {
    const MutexLock lock(mutex_);
    ending_ = true;
    condition_.signal();
  }
  pthread_join(thread_, nullptr);
}

void CallWatch::begin() {
  deadline_.store(monotonic_now() + most_nanoseconds_);
  // Either this sees that the thread sleeps, or the thread sees the deadline before it does.
  if (!asleep_.load()) return;
  const MutexLock lock(mutex_);
  condition_.signal();
}

void CallWatch::rest() {
  if (asleep_.load()) return;
  const MutexLock lock(mutex_);
  condition_.signal();
}

void* CallWatch::run(void* self) {
  static_cast<CallWatch*>(self)->watch();
  return nullptr;
}

void CallWatch::watch() {
  const MutexLock lock(mutex_);
  while (!ending_) {
    asleep_.store(true);
    const std::int64_t deadline = deadline_.load();
    if (deadline == kNone) {
      condition_.wait(mutex_);
      continue;
    }
    asleep_.store(false);
    if (monotonic_now() < deadline) {
      condition_.wait_until(mutex_, CLOCK_MONOTONIC,
                            timespec{deadline / kSecond, deadline % kSecond});
    } else if (std::int64_t expected = deadline;
               deadline_.compare_exchange_strong(expected, kNone)) {
      // A call that begins right now is cut, too: its connection is as good as dead.
      shutdown(socket_, SHUT_RDWR);
    }
  }
}

}  // namespace tally
