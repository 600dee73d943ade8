#include "daemon/threads.h"

#include <cstring>

#include "daemon/base/log.h"
#include "files/poll_task.h"

namespace tally {

namespace {

// An entry without a routine ends the table.
ThreadEntry thread_table[] = {
    {{}, {}, {}, tapd_poll_task, nullptr},
    {},
};

}  // namespace

ThreadEntry& poll_task_entry() {
  return thread_table[0];
}

void start_threads() {
  for (ThreadEntry* entry = thread_table; entry->routine; ++entry) {
    const int error = pthread_create(&entry->thread, nullptr, entry->routine, entry);
    if (error != 0) log_warning("Unable to start the poll task: %s", std::strerror(error));
  }
}

}  // namespace tally
