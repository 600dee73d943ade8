// The time of day.
#pragma once

#include <cstdint>
#include <ctime>

namespace tally {

// now_seconds returns the whole seconds since the epoch. time(2) reads a coarser clock than timed
// waits follow: right after a wait for second T it may still say T - 1, and the collection that is
// due at T would be looked at again and again until the coarse clock ticks.
inline std::int32_t now_seconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::int32_t>(now.tv_sec);
}

}  // namespace tally
