// The schedule rule that agent collections and supervisor kinds share. Pure: time is an argument.
//
// A collection counts as viewed while viewing messages keep arriving, until it is polled an
// interval or more after the last one. A viewed collection is due again one interval after its
// poll, an unviewed one after an hour. Times are 32-bit seconds of the schedule clock
// (daemon/base/clock.h). They saturate at the largest such number, which "now" never reaches.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace tally {

inline constexpr std::int32_t kUnviewedInterval = 3600;  // seconds
inline constexpr std::int32_t kDefaultInterval = 60;

// The limits of the set-interval message; an interval from the preferences may be any number.
inline constexpr std::int32_t kShortestInterval = 15;
inline constexpr std::int32_t kLongestInterval = 3600;

inline constexpr std::uint32_t kPolledInThisPass = 1U << 0;
inline constexpr std::uint32_t kViewed = 1U << 1;

struct Schedule {
  std::int32_t last_viewed = 0;
  std::int32_t last_poll = 0;  // 0: never polled
  std::int32_t next_due = 0;
  std::uint32_t flags = 0;
};

// seconds_after adds without leaving the range of a 32-bit time.
constexpr std::int32_t seconds_after(std::int32_t time, std::int32_t seconds) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(std::int64_t{time} + seconds, Limits::min(), Limits::max()));
}

// reset_times gives a supervisor kind the times of a fresh start at `now`.
constexpr void reset_times(Schedule& schedule, std::int32_t now) {
  schedule.last_viewed = schedule.last_poll = now;
  schedule.next_due = seconds_after(now, kUnviewedInterval);
}

// plan_next_poll records a poll at `now` and schedules the next one: never at once, whatever number
// the preferences hold.
constexpr void plan_next_poll(Schedule& schedule, std::int32_t now, std::int32_t interval) {
  if (std::int64_t{now} - schedule.last_viewed >= interval) schedule.flags &= ~kViewed;
  schedule.last_poll = now;
  const bool viewed = (schedule.flags & kViewed) != 0;
  schedule.next_due = seconds_after(now, viewed ? std::max(interval, 1) : kUnviewedInterval);
}

// note_viewing records that a user is viewing the collection at `now`.
constexpr void note_viewing(Schedule& schedule, std::int32_t now, std::int32_t interval) {
  schedule.flags |= kViewed;
  schedule.next_due = seconds_after(schedule.last_poll, interval);
  schedule.last_viewed = now;
}

// apply_interval reschedules a viewed collection. False, with nothing changed, when it is not
// viewed.
constexpr bool apply_interval(Schedule& schedule, std::int32_t interval) {
  if ((schedule.flags & kViewed) == 0) return false;
  schedule.next_due = seconds_after(schedule.last_poll, interval);
  return true;
}

}  // namespace tally
