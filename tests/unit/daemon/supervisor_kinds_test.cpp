// When the main loop next polls a supervisor kind, and what settings mean.
#include "daemon/supervisor_kinds.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "daemon/base/collection_types.h"
#include "daemon/base/settings.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

bool enabled[3];
std::vector<SupervisorKind> test_kinds() {
  return {{kEtherStats, enabled[0], "", "", "", {}},
          {kSupVlan, enabled[1], "", "", "", {}},
          {kIfStats, enabled[2], "", "", "", {}}};
}

TEST(SupervisorKinds, NextTimeout) {
  struct Kind {
    bool enabled;
    std::uint32_t rows;
    std::int32_t due;
  };
  constexpr std::int32_t kFirst = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
  const struct {
    Kind kinds[3];
    std::optional<std::int32_t> timeout;  // at second 1,000
  } cases[] = {
      {{{true, 0, 0}, {true, 0, 0}, {true, 0, 0}}, {}},
      {{{false, 1, 0}, {false, 9, 1001}, {true, 0, 0}}, {}},
      {{{true, 1, 1060}, {true, 0, 0}, {false, 1, 0}}, 60},
      {{{true, 1, 1060}, {true, 1, 1030}, {true, 1, 1040}}, 30},
      {{{true, 1, 1060}, {true, 1, 1030}, {true, 1, 1003}}, 3},
      {{{true, 1, 1001}, {true, 1, 1030}, {true, 1, 1040}}, 2},
      {{{true, 1, 1060}, {true, 1, 1000}, {true, 1, 1040}}, 2},
      {{{true, 1, kFirst}, {}, {}}, 2},
      {{{true, 1, kLast}, {}, {}}, kLast - 1000},
  };
  for (const auto& test : cases) {
    auto kinds = test_kinds();
    for (std::size_t i = 0; i < 3; ++i) {
      enabled[i] = test.kinds[i].enabled;
      kinds[i].row_count = test.kinds[i].rows;
      kinds[i].schedule.next_due = test.kinds[i].due;
    }
    EXPECT_EQ(next_timeout(kinds, 1000), test.timeout) << &test - cases;
  }
}

// One is due now, one later, one is due and disabled.
TEST(SupervisorKinds, PollsWhatIsEnabledAndDue) {
  static std::vector<std::string> calls;
  KindHooks hooks{};
  hooks.refresh_rows = [](Schedule&) {
    calls.emplace_back("rows");
    return 4U;
  };
  hooks.poll = [](std::int32_t now, std::int32_t previous) {
    calls.push_back(std::to_string(now) + " after " + std::to_string(previous));
    return 1;
  };
  enabled[0] = enabled[1] = true;
  enabled[2] = false;
  auto kinds = test_kinds();
  for (auto& kind : kinds) kind.schedule = {970, 900, 1000, kViewed};
  for (auto& kind : kinds) kind.hooks = hooks;
  kinds[1].schedule.next_due = 1001;
  poll_due_kinds(kinds, 1000, 60);
  EXPECT_EQ(calls, (std::vector<std::string>{"rows", "1000 after 900"}));
  EXPECT_EQ(kinds[0].schedule.next_due, 1060);
}

TEST(Settings, OpensAtOnceAndReadsTexts) {
  const TemporaryDirectory directory;
  const std::string path = directory / "pref.dba";
  EXPECT_EQ(SettingsDatabase(path.c_str()).state(), DatabaseState::absent);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(SettingsDatabase(path.c_str()).state(), DatabaseState::not_a_file);
  EXPECT_EQ(SettingsDatabase((path + "/x").c_str()).error(), std::strerror(ENOTDIR));
  for (std::string text : {"90", "90\n", "90\r\n5", "90\r"}) {
    strip_line_end(text);
    EXPECT_EQ(text, "90");
  }
  const std::pair<std::string, std::int32_t> intervals[] = {
      {"", 0},
      {"abc", 0},
      {"0", 0},
      {" 2 seconds", 2},
      {"-5", -5},
      {std::string(46, ' ') + "23", 2},  // cut after 47 bytes
      {"99999999999999", std::numeric_limits<std::int32_t>::max()}};
  for (const auto& [text, interval] : intervals) EXPECT_EQ(interval_of(text), interval) << text;
}

}  // namespace
}  // namespace tally
