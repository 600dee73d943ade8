// What all rooms build on: log calls and the schedule rules.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "daemon/base/log.h"
#include "daemon/base/schedule.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

TEST(Log, SendsTextsWithTheirPriority) {
  take_log();
  log_debug("Error %d creating delta file.", 17);
  log_warning("%s", "100%s of %n are text");
  log_warning("%s", std::string(5000, 'x').c_str());
  EXPECT_EQ(take_log(), (std::vector{debug_line("Error 17 creating delta file."),
                                     warning_line("100%s of %n are text"),
                                     warning_line(std::string(1023, 'x'))}));
}

constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kFirst = std::numeric_limits<std::int32_t>::min();

TEST(Schedule, PlansTheNextPoll) {
  const struct {
    const char* label;
    std::int32_t last_viewed;
    bool viewed;
    std::int32_t now;
    std::int32_t interval;
    bool still_viewed;
    std::int32_t next_due;
  } cases[] = {
      {"unviewed", 0, false, 10'000, 60, false, 13'600},
      {"just viewed", 10'000, true, 10'000, 60, true, 10'060},
      {"viewed 59 s ago", 9'941, true, 10'000, 60, true, 10'060},
      {"viewed one interval ago", 9'940, true, 10'000, 60, false, 13'600},
      {"viewed in the future", 20'000, true, 10'000, 60, true, 10'060},
      {"interval of the preferences: 1", 10'000, true, 10'000, 1, true, 10'001},
      {"never due at once: negative", 20'000, true, 10'000, -5, true, 10'001},
      {"negative interval, viewed now", 10'000, true, 10'000, -5, false, 13'600},
      {"at the end of time", kLast, true, kLast, 60, true, kLast},
      {"the last hour", 0, false, kLast - 3'599, 60, false, kLast},
      {"an interval beyond the end", kLast, true, kLast - 1, kLast, true, kLast},
      {"a clock before the epoch", kLast, true, kFirst, kFirst, true, kFirst + 1},
      {"the whole range since", kFirst, true, kLast, kLast, false, kLast},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.label);
    Schedule schedule{test.last_viewed, 5, 6, kPolledInThisPass | (test.viewed ? kViewed : 0)};
    plan_next_poll(schedule, test.now, test.interval);
    EXPECT_EQ(schedule.flags, kPolledInThisPass | (test.still_viewed ? kViewed : 0));
    EXPECT_EQ(schedule.last_poll, test.now);
    EXPECT_EQ(schedule.next_due, test.next_due);
    EXPECT_EQ(schedule.last_viewed, test.last_viewed);
  }
}

TEST(Schedule, ViewingAndIntervalsCountFromTheLastPoll) {
  const struct {
    std::int32_t last_poll;
    std::int32_t interval;
    std::int32_t next_due;
  } cases[] = {{1'000, 60, 1'060},  {0, 60, 60},          {kLast - 10, 60, kLast},
               {kLast, kFirst, -1}, {kFirst, -1, kFirst}, {0, -5, -5}};
  for (const auto& [last_poll, interval, next_due] : cases) {
    Schedule schedule{1, last_poll, 42, 0};
    EXPECT_FALSE(apply_interval(schedule, interval));
    EXPECT_EQ(schedule.next_due, 42);  // not viewed
    note_viewing(schedule, 77, interval);
    EXPECT_EQ(schedule.next_due, next_due);
    EXPECT_EQ(schedule.last_viewed, 77);
    EXPECT_EQ(schedule.last_poll, last_poll);
    EXPECT_EQ(schedule.flags, kViewed);
    schedule.next_due = 42;
    EXPECT_TRUE(apply_interval(schedule, interval));
    EXPECT_EQ(schedule.next_due, next_due);
  }
}

}  // namespace
}  // namespace tally
