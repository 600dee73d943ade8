// The supervisor kinds' schedule, and the reader of the settings databases.
#include "daemon/supervisor_kinds.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "daemon/collection_types.h"
#include "daemon/settings.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

bool enabled[3];
std::vector<std::string> hook_calls;

// Three kinds with hooks that tell that they were called; the third has none.
std::vector<SupervisorKind> test_kinds() {
  const KindHooks hooks = {
      [](Schedule&) { hook_calls.emplace_back("initialise"); },
      [](Schedule&) {
        hook_calls.emplace_back("rows");
        return 4U;
      },
      [](std::int32_t now, std::int32_t previous) {
        hook_calls.push_back("poll " + std::to_string(now) + " after " + std::to_string(previous));
      },
      [] { hook_calls.emplace_back("clean"); }};
  return {{kEtherStats, enabled[0], "", "", "", hooks},
          {kSupVlan, enabled[1], "", "", "", hooks},
          {kIfStats, enabled[2], "", "", "", {}}};
}

TEST(SupervisorKinds, NextTimeout) {
  struct Kind {
    bool enabled;
    std::uint32_t rows;
    std::int32_t due;
  };
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
      {{{true, 1, 1002}, {true, 1, 1030}, {true, 1, 1040}}, 2},
      {{{true, 1, 1001}, {true, 1, 1030}, {true, 1, 1040}}, 2},
      {{{true, 1, 1060}, {true, 1, 1000}, {true, 1, 1040}}, 2},
      {{{true, 1, 0}, {true, 1, 1030}, {true, 1, 1040}}, 2},
      {{{true, 1, std::numeric_limits<std::int32_t>::min()}, {}, {}}, 2},
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
  enabled[0] = enabled[2] = true;
  enabled[1] = false;
  poll_due_kinds(kinds, 999, 60);
  EXPECT_TRUE(hook_calls.empty());
  poll_due_kinds(kinds, 1000, 60);
  EXPECT_EQ(hook_calls, (std::vector<std::string>{"rows", "poll 1000 after 900"}));
  EXPECT_EQ(kinds[0].row_count, 4U);
  EXPECT_EQ(kinds[0].schedule.next_due, 1060);
  EXPECT_EQ(kinds[1].schedule.next_due, 1000);
  EXPECT_EQ(kinds[2].schedule.next_due, 1060);
  kinds[0].schedule.flags = 0;
  poll_due_kinds(kinds, 1060, 60);
  EXPECT_EQ(hook_calls.back(), "poll 1060 after 1000");
  EXPECT_EQ(kinds[0].schedule.next_due, 4660);
}

// --- settings ---

void put(GDBM_FILE file, std::string key, std::string value) {
  ASSERT_EQ(gdbm_store(file, {key.data(), static_cast<int>(key.size())},
                       {value.data(), static_cast<int>(value.size())}, GDBM_REPLACE),
            0);
}

TEST(Settings, FetchesBytesOfAKey) {
  const TemporaryDirectory directory;
  const std::string path = directory / "pref.dba";
  EXPECT_FALSE(SettingsDatabase(path.c_str()).opened());
  write_file(path, "not a database");
  EXPECT_FALSE(SettingsDatabase(path.c_str()).opened());
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(SettingsDatabase(path.c_str()).opened());
  std::filesystem::remove(path);
  GDBM_FILE file = gdbm_open(path.c_str(), 0, GDBM_NEWDB, 0600, nullptr);
  put(file, "refresh", "90");
  put(file, std::string("other\0", 6), "with a zero");
  put(file, "empty", "");
  put(file, "zeros", std::string("a\0b", 3));
  EXPECT_FALSE(SettingsDatabase(path.c_str()).opened()) << "a writer has it";
  gdbm_close(file);
  SettingsDatabase database(path.c_str());
  ASSERT_TRUE(database.opened());
  EXPECT_EQ(database.fetch("refresh"), "90");
  EXPECT_EQ(database.fetch("other"), std::nullopt);
  EXPECT_EQ(database.fetch("empty"), "");
  EXPECT_EQ(database.fetch("zeros"), std::string("a\0b", 3));
  EXPECT_EQ(database.fetch("refres"), std::nullopt);
}

// A damaged database gives some bytes, or none, and harms nobody.
TEST(Settings, SurvivesDamage) {
  const TemporaryDirectory directory;
  const std::string path = directory / "pref.dba";
  GDBM_FILE file = gdbm_open(path.c_str(), 512, GDBM_NEWDB, 0600, nullptr);
  for (int i = 0; i < 20; ++i) put(file, "key" + std::to_string(i), std::string(30, 'x'));
  gdbm_close(file);
  const std::string good = read_file(path);
  std::minstd_rand random(8);
  for (int round = 0; round < 300; ++round) {
    std::string bad = good.substr(0, round % 4 == 0 ? random() % good.size() : good.size());
    for (int i = 0; i < 4 && !bad.empty(); ++i) {
      bad[random() % bad.size()] = static_cast<char>(random());
    }
    write_file(path, bad);
    SettingsDatabase database(path.c_str());
    if (!database.opened()) continue;
    for (const char* key : {"key1", "key7", "refresh"}) static_cast<void>(database.fetch(key));
  }
}

TEST(Settings, StripsLineEnds) {
  for (const auto& [text, expected] : std::vector<std::pair<std::string, std::string>>{
           {"", ""}, {"90", "90"}, {"90\n", "90"}, {"90\r\n5", "90"}, {"\n90", ""}, {"9\r", "9"}}) {
    std::string stripped = text;
    strip_line_end(stripped);
    EXPECT_EQ(stripped, expected);
  }
}

}  // namespace
}  // namespace tally
