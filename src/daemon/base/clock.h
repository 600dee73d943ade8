// The time of day, and the clock by which polls are scheduled.
//
// The time of day may be set at any moment: an appliance boots with the wrong date and corrects it
// once the network is up. Samples carry the time of day. Due times are seconds of the schedule
// clock, which starts at a second of its own and ticks with the time of day, but ignores the whole
// seconds by which that is set. So a step moves no poll.
#pragma once

#include <cstdint>
#include <ctime>
#include <limits>

namespace tally {

// The last second that a 32-bit time can name as "now": 19 January 2038, 03:14:06 UTC. What is due
// in the second after it never is (see seconds_after).
inline constexpr std::int32_t kEndOfTime = std::numeric_limits<std::int32_t>::max() - 1;

// now_seconds returns the whole seconds since the epoch, at most kEndOfTime. time(2) reads a
// coarser clock than timed waits use: right after a wait for second T it may still say T - 1, and a
// collection due at T would be looked at over and over until the coarse clock ticks.
std::int32_t now_seconds();

// schedule_seconds returns the whole seconds of the schedule clock. Logs when it notices that the
// time of day was set by about a second or more.
std::int32_t schedule_seconds();

// time_of_day converts a second of the schedule clock to the time of day as it is set now.
std::int32_t time_of_day(std::int32_t schedule_second);

// monotonic_time converts the start of a second of the schedule clock to CLOCK_MONOTONIC, on which
// threads wait.
timespec monotonic_time(std::int32_t schedule_second);

}  // namespace tally
