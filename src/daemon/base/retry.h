// System calls that a signal breaks off before they have done anything.
#pragma once

#include <cerrno>

namespace tally {

// retry_interrupted makes a system call until it ends with anything but EINTR, and returns what it
// returned then; errno is the call's own.
template <class Call>
auto retry_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

}  // namespace tally
