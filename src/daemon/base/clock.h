// The time of day, and the clock that polls are planned by.
//
// Somebody may set the time of day at any moment: an appliance boots with a wrong date and is put
// right when the network is up. Samples carry the time of day. Due times do not depend on it: they
// are seconds of the schedule clock, which starts as the time of day and from then on leaves out
// the whole seconds by which that was set. So a step moves no poll, ahead or back.
#pragma once

#include <cstdint>
#include <ctime>
#include <limits>

namespace tally {

// The last second that a 32-bit time can name as "now": 19 January 2038, 03:14:06 UTC. The one
// behind it is when nothing is due any more (see seconds_after).
inline constexpr std::int32_t kEndOfTime = std::numeric_limits<std::int32_t>::max() - 1;

// now_seconds returns the whole seconds since the epoch; at the end of time it stops. time(2) reads
// a coarser clock than timed waits follow: right after a wait for second T it may still say T - 1,
// and the collection that is due at T would be looked at again and again until the coarse clock
// ticks.
std::int32_t now_seconds();

// schedule_seconds returns the whole seconds of the schedule clock. Logs when it notices that the
// time of day was set by about a second or more.
std::int32_t schedule_seconds();

// time_of_day returns when a second of the schedule clock is, or was, by the time of day as it is
// set now.
std::int32_t time_of_day(std::int32_t schedule_second);

// monotonic_time returns when CLOCK_MONOTONIC, on which threads wait, will show the begin of a
// second of the schedule clock.
timespec monotonic_time(std::int32_t schedule_second);

}  // namespace tally
