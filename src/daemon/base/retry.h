// Repeats system calls that a signal interrupts before they have done anything.
#pragma once

#include <cerrno>

namespace tally {

// retry_interrupted repeats a system call while it fails with EINTR, and returns its last result;
// errno is the call's own.
template <class Call>
auto retry_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

}  // namespace tally
