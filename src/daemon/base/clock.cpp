#include "daemon/base/clock.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "daemon/base/log.h"

namespace tally {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds

std::int64_t read(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * kSecond + now.tv_nsec;
}

// From 1: a sample time of 0 is that of a file which is not finished.
std::int32_t clamped(std::int64_t seconds) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(seconds, 1, kEndOfTime));
}

// Where the schedule clock starts, whatever the date is: a machine that boots beyond the end of
// 32-bit time, and is put right then, must not be stuck there. Far above the 0 of a collection that
// was never polled, and half of the range is left.
constexpr std::int64_t kScheduleStart = 1'000'000'000;

// Smaller steps are ignored, so that the schedule clock ticks together with the time of day, whose
// whole seconds the samples carry.
constexpr std::int64_t kShortestStep = kSecond * 3 / 4;

// Whole seconds by which the time of day has been stepped since the first reading.
std::atomic<std::int64_t> stepped{0};

struct Reading {
  std::int64_t monotonic;  // nanoseconds
  std::int64_t schedule;   // the same moment on the schedule clock
};

struct Clocks {
  std::int64_t monotonic;
  std::int64_t real;
};

// Reads both clocks at the same moment: tries again if the process was held up in between.
Clocks read_clocks() {
  for (;;) {
    const Clocks now{read(CLOCK_MONOTONIC), read(CLOCK_REALTIME)};
    if (read(CLOCK_MONOTONIC) - now.monotonic < kSecond / 10) return now;
  }
}

const Clocks& start() {
  static const Clocks begun = read_clocks();
  return begun;
}

// What the time of day was ahead of the schedule clock when that started, in whole seconds.
std::int64_t start_offset() {
  return start().real / kSecond - kScheduleStart;
}

// Nobody sets the monotonic clock, and both clocks are slewed alike (adjtime(3), NTP): when they
// part, the time of day was set.
Reading read_schedule() {
  const Clocks& begun = start();
  const std::int64_t known = stepped.load();
  const auto [monotonic, real] = read_clocks();
  const std::int64_t parted = real - begun.real - (monotonic - begun.monotonic) - known * kSecond;
  const std::int64_t more = std::abs(parted) < kShortestStep
                                ? 0
                                : (parted + (parted > 0 ? 1 : -1) * kSecond / 2) / kSecond;
  if (std::int64_t expected = known;
      more != 0 && stepped.compare_exchange_strong(expected, known + more)) {
    log_debug("The clock was set %d seconds %s; the times of the next polls move with it.",
              static_cast<int>(std::abs(more)), more > 0 ? "ahead" : "back");
  }
  return {monotonic, real - (known + more + start_offset()) * kSecond};
}

}  // namespace

std::int32_t now_seconds() {
  return clamped(read(CLOCK_REALTIME) / kSecond);
}

std::int32_t schedule_seconds() {
  return clamped(read_schedule().schedule / kSecond);
}

std::int32_t time_of_day(std::int32_t schedule_second) {
  return clamped(schedule_second + start_offset() + stepped.load());
}

// Counted from now: 32-bit times end before the clocks do.
timespec monotonic_time(std::int32_t schedule_second) {
  const Reading now = read_schedule();
  const std::int64_t left = std::int64_t{schedule_second} - clamped(now.schedule / kSecond);
  const std::int64_t when =
      std::max<std::int64_t>(now.monotonic + left * kSecond - now.schedule % kSecond, 0);
  return {when / kSecond, when % kSecond};
}

}  // namespace tally
