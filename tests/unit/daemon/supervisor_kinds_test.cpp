// The supervisor kinds' schedule, and the reader of the settings databases.
#include "daemon/supervisor_kinds.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <limits>
#include <string>
#include <vector>

#include "daemon/collection_types.h"
#include "daemon/settings.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

bool enabled[3];
std::vector<std::string> hook_calls;

// Three kinds with hooks that tell that they were called.
std::vector<SupervisorKind> test_kinds() {
  const KindHooks hooks = {
      [](Schedule&) { hook_calls.emplace_back("initialise"); },
      [](Schedule&) {
        hook_calls.emplace_back("rows");
        return 4U;
      },
      [](std::int32_t now, std::int32_t previous) {
        hook_calls.push_back("poll " + std::to_string(now) + " after " + std::to_string(previous));
        return 1;
      },
      [] { hook_calls.emplace_back("clean"); }};
  return {{kEtherStats, enabled[0], "", "", "", hooks},
          {kSupVlan, enabled[1], "", "", "", hooks},
          {kIfStats, enabled[2], "", "", "", hooks}};
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

TEST(SupervisorKinds, PollsWhatIsEnabledAndDue) {
  auto kinds = test_kinds();
  for (auto& kind : kinds) kind.schedule = {970, 900, 1000, kViewed};
  kinds[2].schedule.next_due = 1001;
  enabled[0] = enabled[2] = true;
  enabled[1] = false;
  poll_due_kinds(kinds, 999, 60);
  EXPECT_TRUE(hook_calls.empty());
  poll_due_kinds(kinds, 1000, 60);
  EXPECT_EQ(hook_calls, (std::vector<std::string>{"rows", "poll 1000 after 900"}));
  EXPECT_EQ(kinds[0].row_count, 4U);
  EXPECT_EQ(kinds[0].schedule.next_due, 1060);
  EXPECT_EQ(kinds[1].schedule.next_due, 1000);
  EXPECT_EQ(kinds[2].schedule.next_due, 1001);
  kinds[0].schedule.flags = 0;
  enabled[2] = false;
  poll_due_kinds(kinds, 1060, 60);
  EXPECT_EQ(hook_calls.back(), "poll 1060 after 1000");
  EXPECT_EQ(kinds[0].schedule.next_due, 4660);
}

TEST(Settings, OpensAtOnceAndStripsLineEnds) {
  const TemporaryDirectory directory;
  const std::string path = directory / "pref.dba";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(SettingsDatabase(path.c_str()).opened());
  for (std::string text : {"90", "90\n", "90\r\n5", "90\r"}) {
    strip_line_end(text);
    EXPECT_EQ(text, "90");
  }
  std::string empty = "\n90";
  strip_line_end(empty);
  EXPECT_EQ(empty, "");
}

}  // namespace
}  // namespace tally
