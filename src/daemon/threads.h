// The daemon's thread table.
#pragma once

#include "daemon/base/thread_entry.h"

namespace tally {

// poll_task_entry is where the registry signals.
ThreadEntry& poll_task_entry();

// start_threads starts every thread of the table with the address of its entry. Without a
// thread that cannot be started (logs) the daemon goes on. The threads are never joined and end
// with the process.
void start_threads();

}  // namespace tally
