// A mutex, a scoped lock and a condition variable that clang's thread safety analysis understands
// (libstdc++'s own are not annotated). With g++ the annotations vanish.
#pragma once

#include <pthread.h>

#include <chrono>
#include <ctime>
#include <thread>

#if defined(__clang__)
#define TALLY_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TALLY_THREAD_ATTRIBUTE(x)
#endif

#define TALLY_CAPABILITY(name) TALLY_THREAD_ATTRIBUTE(capability(name))
#define TALLY_SCOPED_CAPABILITY TALLY_THREAD_ATTRIBUTE(scoped_lockable)
#define TALLY_GUARDED_BY(m) TALLY_THREAD_ATTRIBUTE(guarded_by(m))
#define TALLY_REQUIRES(...) TALLY_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TALLY_EXCLUDES(...) TALLY_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define TALLY_ACQUIRE(...) TALLY_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TALLY_TRY_ACQUIRE(...) TALLY_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define TALLY_RELEASE(...) TALLY_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TALLY_NO_ANALYSIS TALLY_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace tally {

// Mutex is a plain, non-recursive lock. Its destructor does nothing, so one with static storage
// may still be in use by another thread when the process ends.
class TALLY_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() TALLY_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  // lock_within waits for the lock, for at most so long. False: timed out.
  bool lock_within(std::chrono::milliseconds most) TALLY_TRY_ACQUIRE(true) {
#ifdef __SANITIZE_THREAD__  // does not know pthread_mutex_clocklock, and would see no lock taken
    for (; pthread_mutex_trylock(&mutex_) != 0; --most) {
      if (most.count() <= 0) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
#else
    const std::chrono::nanoseconds until =
        std::chrono::steady_clock::now().time_since_epoch() + most;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(until);
    const timespec when{seconds.count(), (until - seconds).count()};
    return pthread_mutex_clocklock(&mutex_, CLOCK_MONOTONIC, &when) == 0;
#endif
  }
  void unlock() TALLY_RELEASE() {
    pthread_mutex_unlock(&mutex_);
  }

 private:
  friend class Condition;
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

// MutexLock holds a mutex for a scope.
class TALLY_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TALLY_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() TALLY_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Condition waits on a Mutex that the caller holds, and may return spuriously. Absolute times are
// those of CLOCK_MONOTONIC.
class Condition {
 public:
  constexpr Condition() = default;
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void wait(Mutex& mutex) TALLY_REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }
  void wait_until(Mutex& mutex, const timespec& when) TALLY_REQUIRES(mutex) {
    pthread_cond_clockwait(&condition_, &mutex.mutex_, CLOCK_MONOTONIC, &when);
  }
  void signal() { pthread_cond_signal(&condition_); }

 private:
  pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

}  // namespace tally
