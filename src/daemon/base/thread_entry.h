// An entry of the daemon's thread table.
#pragma once

#include <pthread.h>

#include "daemon/base/mutex.h"

namespace tally {

// ThreadEntry is one thread with the mutex and condition that wake it. A signal that comes while
// the thread is busy is lost, so the thread looks for work, with the mutex held, before it waits.
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
