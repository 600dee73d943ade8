// The daemon's thread table.
#pragma once

#include "daemon/base/thread_entry.h"

namespace tally {

// poll_task_entry returns the entry that the registry signals.
ThreadEntry& poll_task_entry();

// start_threads starts every thread of the table with the address of its entry. The daemon carries
// on without one that cannot be started (logs). Threads are never joined; they end with the
// process.
void start_threads();

}  // namespace tally
