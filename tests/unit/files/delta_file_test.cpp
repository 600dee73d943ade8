// The generic delta file: the merge against a plain model, and every numbered error.
#include "files/delta_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <optional>
#include <random>

#include "files/file_format.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

constexpr std::uint32_t kRecord = 60;

struct Row {
  std::uint32_t key;
  std::uint32_t count;
};
using Rows = std::map<std::uint32_t, std::uint32_t>;  // key, count

// A record starts with a row; what stands behind it follows from the row.
std::string record(const Row& row) {
  return bytes_of(row) + std::string(kRecord - sizeof row, static_cast<char>(row.key + row.count));
}
std::string records(const Rows& rows) {
  std::string bytes;
  for (const auto& [key, count] : rows) bytes += record({key, count});
  return bytes;
}
Row row_of(const RecordCache& cache) {
  Row row;
  std::memcpy(&row, filebuf_current(cache), sizeof row);
  return row;
}
Rows random_rows(std::minstd_rand& random, unsigned most) {
  const auto below = [&](unsigned end) { return static_cast<std::uint32_t>(random() % end); };
  Rows rows;
  for (auto i = below(most + 1); i > 0; --i) rows[below(most)] = below(3);
  return rows;
}

std::string header(std::int32_t interval, std::uint32_t up_time, std::int32_t time) {
  return bytes_of(FileHeader{interval, up_time, time, 13});
}

// The change of the count, times the interval; none for a row that did not change, nor for every
// 13th new one.
std::optional<Row> change(const std::optional<Row>& prev, const Row& last, std::int32_t interval) {
  if (prev ? prev->count == last.count : last.key % 13 == 0) return {};
  const std::uint32_t before = prev ? prev->count : 0;
  return Row{last.key, (last.count - before) * static_cast<std::uint32_t>(interval)};
}

int compare_keys(const RecordCache& last, const RecordCache& prev) {
  return static_cast<int>(row_of(last).key) - static_cast<int>(row_of(prev).key);
}

int make_delta(const RecordCache& last, const RecordCache* prev, unsigned char* out,
               std::int32_t interval) {
  const auto rate =
      change(prev ? std::optional(row_of(*prev)) : std::nullopt, row_of(last), interval);
  if (!rate) return prev ? 0 : -1;
  std::memcpy(out, record(*rate).data(), kRecord);
  return 5;
}

class DeltaFileTest : public testing::Test {
 protected:
  void SetUp() override { take_log(); }
  int create() {
    constexpr DeltaRoutines kRoutines{kRecord, compare_keys, make_delta};
    return create_delta_file((directory_ / "last").c_str(), (directory_ / "prev").c_str(),
                             delta_path_.c_str(), kRoutines, last_);
  }
  void write(const std::string& prev, const std::string& last) {
    write_file(directory_ / "prev", prev);
    write_file(directory_ / "last", last);
  }
  static LogLine error(int number) {
    return debug_line("Error " + std::to_string(number) + " creating delta file.");
  }

  TemporaryDirectory directory_;
  const std::string delta_path_ = directory_ / "delta";
  RecordCache last_;
};

TEST_F(DeltaFileTest, IsTheMergeOfBothSamples) {
  std::minstd_rand random(3);
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(round);
    // 136 records fill a buffer.
    const unsigned most = round % 3 == 0 ? 5 : round % 3 == 1 ? 140 : 600;
    const Rows prev = random_rows(random, most);
    const Rows last = random_rows(random, most);
    const auto interval = static_cast<std::int32_t>(random() % 200) - 50;
    const std::int32_t time = 1'000'000 + interval;
    write(header(0, 1, 1'000'000) + records(prev), header(0, 2, time) + records(last));
    ASSERT_EQ(create(), 1);
    std::string expected = header(interval, 0, time);
    for (const auto& [key, count] : last) {
      const auto before = prev.find(key);
      const auto rate =
          change(before == prev.end() ? std::nullopt : std::optional(Row{key, before->second}),
                 {key, count}, interval);
      if (rate) expected += record(*rate);
    }
    ASSERT_EQ(read_file(delta_path_), expected);
  }
  EXPECT_TRUE(take_log().empty());
}

TEST_F(DeltaFileTest, ShortHeadersLeaveAnEmptyFile) {
  const std::string good = header(0, 0, 5) + record({1, 1});
  for (const std::string file : {"prev", "last"}) {
    write(file == "prev" ? good.substr(0, 15) : good, file == "last" ? good.substr(0, 15) : good);
    write_file(delta_path_, "of old");
    EXPECT_EQ(create(), 1);
    EXPECT_TRUE(std::filesystem::is_empty(delta_path_));
    EXPECT_EQ(take_log(),
              std::vector{debug_line("Unable to read file header from " + file + " file!")});
  }
}

TEST_F(DeltaFileTest, NumbersItsErrorsAndRemovesTheFile) {
  const std::string head = header(0, 0, 5);
  Rows rows;
  for (std::uint32_t key = 1; key <= 272; ++key) rows[key] = 1;  // two buffers
  const std::string full = head + records(rows);
  for (auto& [key, count] : rows) count = 2;
  const std::string changed = head + records(rows);
  const std::string cut_record = "Error 2 reading to fill file cache.";
  const struct {
    int number;
    std::string prev;
    std::string last;
    std::string also;
    std::size_t limit = 1 << 20;  // of the delta file's size
  } cases[] = {
      {15, full, head + "x", cut_record},
      {16, head + "x", full, cut_record},
      {19, full + "x", full, cut_record},
      {19, full + "x", head + record({9999, 1}), cut_record},
      {20, full, full + "x", cut_record},
      {17, head, full, "Unable to write poll cache to file.", 0},
      {18, full, changed, "Not all tallyd cached data written to file.", 100},
      {21, head, head + record({1, 1}), "Unable to flush poll cache to file.", 0},
      {21, head, head, "Not all cached data flushed to file.", 1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.number);
    write(test.prev, test.last);
    {
      const FileSizeLimit limit(test.limit);
      EXPECT_EQ(create(), 0);
    }
    EXPECT_EQ(take_log(), (std::vector{warning_line(test.also), error(test.number)}));
    EXPECT_FALSE(std::filesystem::exists(delta_path_));
  }
}

TEST_F(DeltaFileTest, NeedsBothSamplesAndFollowsNoLink) {
  const auto expect_error = [this](int number) {
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(take_log(), std::vector{error(number)});
    EXPECT_FALSE(std::filesystem::exists(delta_path_));
  };
  write_file(delta_path_, "of old");
  expect_error(1);
  write_file(directory_ / "last", header(0, 0, 5));
  expect_error(2);
  write_file(directory_ / "prev", header(0, 0, 5));
  write_file(directory_ / "elsewhere", "of somebody else");
  std::filesystem::create_symlink(directory_ / "elsewhere", delta_path_);
  expect_error(3);
  EXPECT_EQ(read_file(directory_ / "elsewhere"), "of somebody else");
}

}  // namespace
}  // namespace tally
