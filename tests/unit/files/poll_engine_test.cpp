// The engine over an agent of the test's own: against a plain model, and every failure.
#include "files/poll_engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "daemon/clock.h"
#include "files/file_format.h"
#include "files/file_lock.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

struct Row {
  std::uint32_t key;
  std::uint32_t count;

  friend bool operator==(const Row&, const Row&) = default;
};
using Rows = std::vector<Row>;

// A record starts with a row; what stands behind it follows from the row.
std::string record(const Row& row, std::uint32_t size) {
  return bytes_of(row) + std::string(size - sizeof row, static_cast<char>(row.key + row.count));
}
Row row_of(const unsigned char* bytes) {
  Row row;
  std::memcpy(&row, bytes, sizeof row);
  return row;
}
std::string records(const Rows& rows, std::uint32_t size) {
  std::string bytes;
  for (const Row& row : rows) bytes += record(row, size);
  return bytes;
}

// Every 7th count has no rate, every 7th other one is no count at all; calc_rate fails for every
// 11th. Rates show what they were made of.
int rate_result(std::uint32_t count) {
  return count % 7 == 0 ? 0 : count % 7 == 1 ? -1 : 1;
}
bool has_rate(std::uint32_t count) {
  return count % 11 != 0;
}
Row rate(const Row* prev, const Row& last, std::uint32_t interval) {
  return {last.key, 1000 * last.count + 10 * (prev ? prev->count : 5) + interval};
}

class FakeAgent;
FakeAgent* agent_at_work = nullptr;

class FakeAgent final : public Agent {
 public:
  bool connect() override { return true; }
  bool check_connection() override { return true; }
  void rest() override {}
  std::uint32_t up_time() override { return 4242; }
  // Nobody looks at what is behind the reference.
  AgentClient& client() override { return reinterpret_cast<AgentClient&>(*this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return slots; }

  explicit FakeAgent(std::uint32_t record_size) {
    agent_at_work = this;
    slots.record_size = record_size;
    slots.compare = [](const unsigned char* a, const unsigned char* b) {
      const std::uint32_t left = row_of(a).key;
      const std::uint32_t right = row_of(b).key;
      return left < right ? -1 : left > right ? 1 : 0;
    };
    slots.calc_delta = [](const unsigned char* prev, const unsigned char* last, unsigned char* out,
                          std::uint32_t interval) {
      const Row before = row_of(prev);
      put(out, rate(&before, row_of(last), interval));
      return rate_result(row_of(last).count);
    };
    slots.calc_rate = [](const unsigned char* last, unsigned char* out, std::uint32_t interval) {
      put(out, rate(nullptr, row_of(last), interval));
      return has_rate(row_of(last).count) ? 1 : 0;
    };
    slots.rpc_getnext = [](RowIterator& iterator) -> const unsigned char* {
      FakeAgent& self = *agent_at_work;
      EXPECT_EQ(iterator.client, &self.client());
      EXPECT_EQ(iterator.control_index, 3U);
      EXPECT_EQ(iterator.time_mark, 0U);
      EXPECT_EQ(iterator.previous_up_time, 1717U);
      if (self.next == 0 || self.next == self.rows.size()) {
        const UniqueFd reader = open_file(self.delta_path.c_str(), O_RDONLY);
        EXPECT_NE(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "written without a lock";
      }
      if (self.next == self.rows.size()) return nullptr;
      put(iterator.record, self.rows[self.next++]);
      return iterator.record;
    };
  }

  static void put(unsigned char* to, const Row& row) {
    const std::string bytes = record(row, agent_at_work->slots.record_size);
    std::memcpy(to, bytes.data(), bytes.size());
  }

  CollectionOps slots;
  std::string delta_path;
  Rows rows;
  std::size_t next = 0;
};

class PollEngineTest : public testing::Test {
 protected:
  void SetUp() override { take_log(); }

  // Polls with these rows in the previous sample, which is `age` seconds old, and at the agent.
  int poll(const Rows& prev, const Rows& now, std::int32_t age = 60) {
    write_file(path("prev"), bytes_of(FileHeader{0, 1717, now_seconds() - age, 1}) +
                                 records(prev, agent_.slots.record_size));
    return poll_with_prev(now);
  }
  int poll_with_prev(const Rows& now) {
    agent_.rows = now;
    agent_.next = 0;
    agent_.delta_path = path("delta");
    CollectionRecord collection;
    collection.type = 1;
    collection.index = 3;
    return poll_coll_delta(agent_, collection, path("last").c_str(), path("prev").c_str(),
                           path("delta").c_str());
  }
  std::string path(const std::string& name) const {
    return name == full_ ? "/dev/full" : directory_ / name;
  }

  TemporaryDirectory directory_;
  FakeAgent agent_{62};
  std::string full_;  // the file on a full disk
};

Rows sorted_rows(std::minstd_rand& random, std::uint32_t most) {
  std::map<std::uint32_t, std::uint32_t> rows;
  for (auto i = random() % (most + 1); i > 0; --i) {
    rows[static_cast<std::uint32_t>(random() % most)] = static_cast<std::uint32_t>(random() % 1000);
  }
  Rows list;
  for (const auto& [key, count] : rows) list.push_back({key, count});
  return list;
}

TEST_F(PollEngineTest, IsTheMergeOfThePreviousSampleAndTheAgent) {
  std::minstd_rand random(4);
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    const std::uint32_t size = round % 5 == 0 ? 20 : round % 5 == 1 ? 68 : 62;
    agent_.slots.record_size = size;
    // 132 records of 62 bytes fill a buffer.
    const std::uint32_t most = round % 10 == 0 ? 900 : round % 3 == 0 ? 140 : 6;
    const Rows prev = sorted_rows(random, most);
    const Rows now = sorted_rows(random, most);
    const std::int32_t age = round % 4 == 0 ? -7 : round % 4 == 1 ? 0 : 60;
    ASSERT_EQ(poll(prev, now, age), 1);

    const std::string delta = read_file(path("delta"));
    FileHeader header{};
    ASSERT_GE(delta.size(), sizeof header);
    std::memcpy(&header, delta.data(), sizeof header);
    EXPECT_NEAR(header.interval, age, 1);
    EXPECT_NEAR(header.sample_time, now_seconds(), 1);
    std::map<std::uint32_t, std::uint32_t> before;
    std::map<std::uint32_t, std::uint32_t> merged;
    for (const Row& row : prev) merged[row.key] = before[row.key] = row.count;
    Rows rates;
    std::size_t failed_rates = 0;
    for (const Row& row : now) {
      merged[row.key] = row.count;
      const auto old = before.find(row.key);
      const Row was{row.key, old == before.end() ? 0 : old->second};
      const bool is_new = old == before.end();
      failed_rates += is_new && !has_rate(row.count);
      if (is_new ? has_rate(row.count) : rate_result(row.count) == 1) {
        rates.push_back(
            rate(is_new ? nullptr : &was, row, static_cast<std::uint32_t>(header.interval)));
      }
    }
    Rows last;
    for (const auto& [key, count] : merged) last.push_back({key, count});
    ASSERT_EQ(delta, bytes_of(FileHeader{header.interval, 0, header.sample_time, 1}) +
                         records(rates, size));
    ASSERT_EQ(read_file(path("last")),
              bytes_of(FileHeader{0, 4242, header.sample_time, 1}) + records(last, size));
    ASSERT_EQ(take_log(), std::vector(failed_rates, warning_line("poll_coll_delta: Error "
                                                                 "calculating rates.")));
  }
  const UniqueFd reader = open_file(path("delta").c_str(), O_RDONLY);
  EXPECT_EQ(flock(reader.get(), LOCK_EX | LOCK_NB), 0) << "the lock has been let go";
}

// Order and uniqueness are the agent's promise. Broken, every row still arrives, and it ends.
TEST_F(PollEngineTest, TakesUnsortedAndDuplicateRows) {
  std::minstd_rand random(5);
  for (int round = 0; round < 300; ++round) {
    Rows lists[2];
    for (Rows& rows : lists) {
      for (auto i = random() % 200; i > 0; --i) {
        rows.push_back({static_cast<std::uint32_t>(random() % 50),
                        2 + 77 * static_cast<std::uint32_t>(random() % 5)});
      }
    }
    ASSERT_EQ(poll(lists[0], lists[1]), 1);
    const std::string last = read_file(path("last"));
    ASSERT_EQ((last.size() - 16) % 62, 0U);
    ASSERT_LE((last.size() - 16) / 62, lists[0].size() + lists[1].size());
    Rows written;
    for (std::size_t at = 16; at < last.size(); at += 62) {
      const Row row = row_of(reinterpret_cast<const unsigned char*>(last.data() + at));
      if (written.size() < lists[1].size() && row == lists[1][written.size()]) {
        written.push_back(row);
      }
    }
    ASSERT_EQ(written, lists[1]);
    take_log();
  }
}

Rows rows_from(std::uint32_t first, std::uint32_t count) {
  Rows rows;
  for (std::uint32_t i = 0; i < count; ++i) rows.push_back({first + i, 2});
  return rows;
}

TEST_F(PollEngineTest, TellsWhichWriteFailed) {
  const LogLine put = warning_line("Unable to write poll cache to file.");
  const LogLine flush = warning_line("Unable to flush poll cache to file.");
  const struct {
    const char* full;  // the file on a full disk
    Rows prev;
    Rows now;
    LogLine first;
    LogLine second;
  } cases[] = {
      {"last",
       rows_from(1, 200),
       {},
       put,
       warning_line("poll_coll_delta: Error writing last record 1.")},
      {"last",
       {},
       rows_from(1, 200),
       put,
       warning_line("poll_coll_delta: Error writing last record 2.")},
      {"last", rows_from(1, 200), rows_from(900, 1), put,
       warning_line("poll_coll_delta: Error writing last record 3.")},
      {"last", rows_from(1, 200), rows_from(1, 200), put,
       warning_line("poll_coll_delta: Error writing last record 4.")},
      {"last", rows_from(900, 1), rows_from(1, 200), put,
       debug_line("poll_coll_delta: Error writing last record 5.")},
      {"delta",
       {},
       rows_from(1, 200),
       put,
       warning_line("poll_coll_delta: Error writing delta record 1.")},
      {"delta", rows_from(1, 200), rows_from(1, 200), put,
       warning_line("poll_coll_delta: Error writing delta record 2.")},
      {"delta", rows_from(900, 1), rows_from(1, 200), put,
       debug_line("poll_coll_delta: Error writing delta record 3.")},
      {"last",
       rows_from(1, 5),
       {},
       flush,
       debug_line("poll_coll_delta: Error flushing last file.")},
      {"delta",
       rows_from(1, 5),
       {},
       flush,
       debug_line("poll_coll_delta: Error flushing delta file.")},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.second.text);
    full_ = test.full;
    EXPECT_EQ(poll(test.prev, test.now), 0);
    EXPECT_EQ(take_log(), (std::vector{test.first, test.second}));
  }
}

// A disk that is full at byte n, for n around every block of the files.
TEST_F(PollEngineTest, FailsAtEveryFullDisk) {
  const Rows prev = rows_from(1, 500);
  const Rows now = rows_from(100, 700);
  ASSERT_EQ(poll(prev, now), 1);
  const std::size_t whole = read_file(path("last")).size();
  ASSERT_GT(whole, read_file(path("delta")).size());
  for (std::size_t block = 0; block <= whole + 8192; block += 8192) {
    for (const std::size_t limit : {block, block + 1, block + 8191, whole - 1, whole}) {
      SCOPED_TRACE(limit);
      write_file(path("prev"),
                 bytes_of(FileHeader{0, 1717, now_seconds() - 60, 1}) + records(prev, 62));
      const std::string sample = read_file(path("prev"));
      int result = -1;
      {
        const FileSizeLimit full(limit);
        result = poll_with_prev(now);
      }
      const std::vector<LogLine> log = take_log();
      EXPECT_EQ(result, limit >= whole);
      EXPECT_EQ(log.size(), limit >= whole ? 0U : 2U);
      if (!log.empty()) {
        EXPECT_NE(log.front().text.find(" cache"), std::string::npos);
        EXPECT_EQ(log.back().text.rfind("poll_coll_delta: Error ", 0), 0U);
      }
      EXPECT_EQ(read_file(path("prev")), sample);
    }
  }
}

TEST_F(PollEngineTest, OpensAllFilesBeforeItTestsOne) {
  const std::vector cannot_open{warning_line("poll_coll_delta: Error opening file!")};
  write_file(path("last"), "of old");
  write_file(path("delta"), "of old");
  EXPECT_EQ(poll_with_prev({}), 0);  // no prev
  EXPECT_EQ(take_log(), cannot_open);
  EXPECT_TRUE(std::filesystem::exists(path("last")) && std::filesystem::exists(path("delta")));
  EXPECT_EQ(read_file(path("last")) + read_file(path("delta")), "");

  for (const char* directory : {"last", "delta"}) {
    std::filesystem::remove(path("last"));
    std::filesystem::remove(path("delta"));
    std::filesystem::create_directory(path(directory));
    EXPECT_EQ(poll({}, {}), 0);
    EXPECT_EQ(take_log(), cannot_open);
    EXPECT_TRUE(std::filesystem::exists(path("last")) && std::filesystem::exists(path("delta")));
    std::filesystem::remove(path(directory));
  }

  for (const std::size_t size : {0U, 15U}) {
    write_file(path("prev"), std::string(size, 'x'));
    write_file(path("last"), "of old");
    EXPECT_EQ(poll_with_prev(rows_from(1, 3)), 0);
    EXPECT_EQ(take_log(),
              std::vector{warning_line("poll_coll_delta: Error reading header from prev file!")});
    EXPECT_EQ(read_file(path("last")) + read_file(path("delta")), "");
  }
}

TEST_F(PollEngineTest, NeedsItsSlots) {
  const CollectionOps whole = agent_.slots;
  for (int slot = 0; slot < 5; ++slot) {
    SCOPED_TRACE(slot);
    agent_.slots = whole;
    if (slot == 0) agent_.slots.compare = nullptr;
    if (slot == 1) agent_.slots.rpc_getnext = nullptr;
    if (slot == 2) agent_.slots.calc_delta = nullptr;
    if (slot == 3) agent_.slots.record_size = 0;
    if (slot == 4) agent_.slots.calc_rate = nullptr;  // missed only when a row is new
    write_file(path("prev"), bytes_of(FileHeader{0, 1717, 5, 1}));
    EXPECT_EQ(poll_with_prev(slot == 4 ? rows_from(1, 1) : Rows{}), slot == 4);
    EXPECT_EQ(take_log(),
              std::vector{warning_line(slot == 4 ? "poll_coll_delta: Error calculating rates."
                                                 : "poll_coll_delta: collection function not "
                                                   "set!\n")});
    EXPECT_EQ(std::filesystem::exists(path("last")), slot == 4);
  }
}

}  // namespace
}  // namespace tally
