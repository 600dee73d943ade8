// An entry of the daemon's thread table.
#pragma once

#include <pthread.h>

#include "daemon/base/mutex.h"

namespace tally {

// ThreadEntry is one thread and its wake-up pair: whoever wants the thread to look around takes
// the mutex, signals the condition and lets go again. A signal that comes while the thread is busy
// is not remembered; it looks at its work before it waits, with the mutex held.
struct ThreadEntry {
  pthread_t thread{};
  Mutex mutex;
  Condition condition;
  void* (*routine)(void* entry) = nullptr;  // given the address of its own entry
  void* context = nullptr;                  // what the routine works on

  void wake() TALLY_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    condition.signal();
  }
};

}  // namespace tally
