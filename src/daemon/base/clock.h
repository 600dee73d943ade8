// The time of day.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

namespace tally {

// The last second that a 32-bit time can name as "now": 19 January 2038, 03:14:06 UTC. The one
// behind it is when nothing is due any more (see seconds_after).
inline constexpr std::int32_t kEndOfTime = std::numeric_limits<std::int32_t>::max() - 1;

// whole_seconds returns the seconds of a time of day as a 32-bit time.
inline std::int32_t whole_seconds(const timespec& time) {
  return static_cast<std::int32_t>(std::clamp<std::time_t>(time.tv_sec, 0, kEndOfTime));
}

// now_seconds returns the whole seconds since the epoch; at the end of time it stops. time(2) reads
// a coarser clock than timed waits follow: right after a wait for second T it may still say T - 1,
// and the collection that is due at T would be looked at again and again until the coarse clock
// ticks.
inline std::int32_t now_seconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return whole_seconds(now);
}

}  // namespace tally
