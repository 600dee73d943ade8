// The engine over an agent of the test's own: rows without a rate, the lock, and slots that are not
// set. The merge is judged end to end.
#include "files/poll_engine.h"

#include "daemon/base/clock.h"
#include "files/file_format.h"
#include "files/sample_rows.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

constexpr std::uint32_t kRecord = 62;

void put(unsigned char* to, const Row& row) {
  std::memcpy(to, record(row, kRecord).data(), kRecord);
}

// The agent's rows are 1 to 5. Counts are what a rate's operation gives back.
class FakeAgent final : public Agent {
 public:
  explicit FakeAgent(const std::string& delta) {
    delta_path = delta;
    given = 0;
    slots.record_size = kRecord;
    slots.compare = [](const unsigned char* a, const unsigned char* b) {
      return difference(row_of(a), row_of(b));
    };
    slots.calc_delta = [](const unsigned char* /*prev*/, const unsigned char* last,
                          unsigned char* out, std::uint32_t interval) {
      put(out, {row_of(last).key, interval});
      return static_cast<int>(row_of(last).count);
    };
    slots.calc_rate = [](const unsigned char* last, unsigned char* out, std::uint32_t interval) {
      return slots.calc_delta(nullptr, last, out, interval);
    };
    slots.rpc_getnext = [](RowIterator& iterator) -> const unsigned char* {
      EXPECT_EQ(iterator.previous_up_time, 1717U);
      expect_locked(delta_path);
      if (given == std::size(kRows)) return nullptr;
      put(iterator.record, kRows[given++]);
      return iterator.record;
    };
  }
  bool connect() override { return true; }
  bool check_connection() override { return true; }
  std::uint32_t up_time() override { return 4242; }
  // Nobody looks at what is behind the reference.
  AgentClient& client() override { return reinterpret_cast<AgentClient&>(*this); }
  const CollectionOps& ops(std::uint32_t /*type*/) const override { return slots; }

  static constexpr Row kRows[] = {{1, 1}, {2, 0}, {3, 1}, {4, 0}, {5, 1}};
  static inline CollectionOps slots;
  static inline std::string delta_path;
  static inline std::size_t given = 0;
};

TEST(PollEngine, LeavesOutWhatHasNoRateAndNeedsItsSlots) {
  const TemporaryDirectory directory;
  FakeAgent agent(directory / "delta");
  const auto poll = [&] {
    return poll_coll_delta(agent, {}, (directory / "last").c_str(), (directory / "prev").c_str(),
                           (directory / "delta").c_str());
  };
  const CollectionOps whole = FakeAgent::slots;
  take_log();
  for (int slot = 0; slot < 4; ++slot) {
    FakeAgent::slots = whole;
    if (slot == 0) FakeAgent::slots.compare = nullptr;
    if (slot == 1) FakeAgent::slots.rpc_getnext = nullptr;
    if (slot == 2) FakeAgent::slots.calc_delta = nullptr;
    if (slot == 3) FakeAgent::slots.record_size = 0;
    EXPECT_EQ(poll(), 0);
    EXPECT_FALSE(std::filesystem::exists(directory / "last")) << slot;
  }
  EXPECT_EQ(take_log(),
            std::vector(4, warning_line("poll_coll_delta: collection function not set!\n")));

  FakeAgent::slots = whole;
  write_file(directory / "prev",
             bytes_of(FileHeader{0, 1717, now_seconds(), 0}) + records({{1, 9}, {2, 9}}, kRecord));
  EXPECT_EQ(poll(), 1);
  std::string keys;
  for (const char* file : {"last", "delta"}) {
    const std::string bytes = read_file(directory / file);
    for (std::size_t at = sizeof(FileHeader); at < bytes.size(); at += kRecord) keys += bytes[at];
  }
  EXPECT_EQ(keys, "\1\2\3\4\5\1\3\5");
  // A known row that did not change is no failure; a new row without a rate is one.
  EXPECT_EQ(take_log(), std::vector{warning_line("poll_coll_delta: Error calculating rates.")});
  expect_unlocked(directory / "delta");
}

}  // namespace
}  // namespace tally
