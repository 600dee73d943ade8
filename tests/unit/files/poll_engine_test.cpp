// The engine over an agent of the test's own: against a plain model; failures are shown end to end.
#include "files/poll_engine.h"

#include "daemon/clock.h"
#include "files/file_format.h"
#include "files/sample_rows.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

// Every 7th count has no rate, and every 7th other one is no count at all. Rates show what they
// were made of.
int rate_result(const Row& last) {
  return last.count % 7 == 0 ? 0 : last.count % 7 == 1 ? -1 : 1;
}
Row rate(const std::optional<Row>& prev, const Row& last, std::uint32_t interval) {
  return {last.key, 1000 * last.count + 10 * (prev ? prev->count : 5) + interval};
}

class FakeAgent;
FakeAgent* agent_at_work = nullptr;

class FakeAgent final : public Agent {
 public:
  bool connect() override { return true; }
  bool check_connection() override { return true; }
  std::uint32_t up_time() override { return 4242; }
  // Nobody looks at what is behind the reference.
  AgentClient& client() override { return reinterpret_cast<AgentClient&>(*this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return slots; }

  FakeAgent() {
    agent_at_work = this;
    slots.record_size = 62;
    slots.compare = [](const unsigned char* a, const unsigned char* b) {
      return difference(row_of(a), row_of(b));
    };
    slots.calc_delta = [](const unsigned char* prev, const unsigned char* last, unsigned char* out,
                          std::uint32_t interval) {
      put(out, rate(row_of(prev), row_of(last), interval));
      return rate_result(row_of(last));
    };
    slots.calc_rate = [](const unsigned char* last, unsigned char* out, std::uint32_t interval) {
      put(out, rate({}, row_of(last), interval));
      return rate_result(row_of(last)) == 1 ? 1 : 0;
    };
    slots.rpc_getnext = [](RowIterator& iterator) { return agent_at_work->next_row(iterator); };
  }

  const unsigned char* next_row(RowIterator& iterator) {
    EXPECT_EQ(iterator.client, &client());
    EXPECT_EQ(iterator.control_index, 3U);
    EXPECT_EQ(iterator.time_mark, 0U);
    EXPECT_EQ(iterator.previous_up_time, 1717U);
    if (next == rows.begin() || next == rows.end()) expect_locked(delta_path);
    if (next == rows.end()) return nullptr;
    put(iterator.record, {next->first, next->second});
    ++next;
    return iterator.record;
  }

  static void put(unsigned char* to, const Row& row) {
    const std::string bytes = record(row, agent_at_work->slots.record_size);
    std::memcpy(to, bytes.data(), bytes.size());
  }

  CollectionOps slots;
  std::string delta_path;
  Rows rows;
  Rows::const_iterator next;
};

class PollEngineTest : public testing::Test {
 protected:
  void SetUp() override { take_log(); }

  // Polls with these rows in the previous sample, which is `age` seconds old, and at the agent.
  int poll(const Rows& prev, const Rows& now, std::int32_t age = 60) {
    const FileHeader header{0, 1717, now_seconds() - age, 1};
    write_file(path("prev"), bytes_of(header) + records(prev, agent_.slots.record_size));
    return poll_with_prev(now);
  }
  int poll_with_prev(const Rows& now) {
    agent_.rows = now;
    agent_.next = agent_.rows.begin();
    agent_.delta_path = path("delta");
    CollectionRecord collection;
    collection.type = 1;
    collection.index = 3;
    return poll_coll_delta(agent_, collection, path("last").c_str(), path("prev").c_str(),
                           path("delta").c_str());
  }
  std::string path(const std::string& name) const { return directory_ / name; }

  TemporaryDirectory directory_;
  FakeAgent agent_;
};

TEST_F(PollEngineTest, IsTheMergeOfThePreviousSampleAndTheAgent) {
  std::minstd_rand random(4);
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    const std::uint32_t size = round % 5 == 0 ? 20 : round % 5 == 1 ? 68 : 62;
    agent_.slots.record_size = size;
    // 132 records of 62 bytes fill a buffer.
    const std::uint32_t most = round % 10 == 0 ? 900 : round % 3 == 0 ? 140 : 6;
    const Rows prev = random_rows(random, most, 1000);
    const Rows now = random_rows(random, most, 1000);
    const std::int32_t age = round % 4 == 0 ? -7 : round % 4 == 1 ? 0 : 60;
    ASSERT_EQ(poll(prev, now, age), 1);

    const std::string delta = read_file(path("delta"));
    FileHeader header{};
    ASSERT_GE(delta.size(), sizeof header);
    std::memcpy(&header, delta.data(), sizeof header);
    EXPECT_NEAR(header.interval, age, 1);
    EXPECT_NEAR(header.sample_time, now_seconds(), 1);
    std::string expected = bytes_of(FileHeader{header.interval, 0, header.sample_time, 1});
    std::size_t failed = 0;
    for (const auto& [key, count] : now) {
      const Row row{key, count};
      const auto before = row_with(prev, key);
      if (rate_result(row) == 1) {
        const auto interval = static_cast<std::uint32_t>(header.interval);
        expected += record(rate(before, row, interval), size);
      } else if (!before) {
        ++failed;
      }
    }
    ASSERT_EQ(delta, expected);
    Rows last = now;
    last.insert(prev.begin(), prev.end());  // the rows that the agent no longer has
    ASSERT_EQ(read_file(path("last")),
              bytes_of(FileHeader{0, 4242, header.sample_time, 1}) + records(last, size));
    const LogLine no_rate = warning_line("poll_coll_delta: Error calculating rates.");
    ASSERT_EQ(take_log(), std::vector(failed, no_rate));
  }
  expect_unlocked(path("delta"));
}

TEST_F(PollEngineTest, NeedsItsSlots) {
  const CollectionOps whole = agent_.slots;
  for (int slot = 0; slot < 4; ++slot) {
    agent_.slots = whole;
    if (slot == 0) agent_.slots.compare = nullptr;
    if (slot == 1) agent_.slots.rpc_getnext = nullptr;
    if (slot == 2) agent_.slots.calc_delta = nullptr;
    if (slot == 3) agent_.slots.record_size = 0;
    EXPECT_EQ(poll_with_prev({}), 0);
    EXPECT_FALSE(std::filesystem::exists(path("last"))) << slot;
  }
  const LogLine refusal = warning_line("poll_coll_delta: collection function not set!\n");
  EXPECT_EQ(take_log(), std::vector(4, refusal));
}

}  // namespace
}  // namespace tally
