// The daemon's thread table.
#pragma once

#include "daemon/base/thread_entry.h"

namespace tally {

// poll_task_entry is where the registry signals.
ThreadEntry& poll_task_entry();

// start_threads starts every thread of the table with the address of its entry. Results are not
// checked; the threads are never joined and end with the process.
void start_threads();

}  // namespace tally
