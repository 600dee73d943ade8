// The generic delta file: the merge against a plain model, and every numbered error.
#include "files/delta_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "files/file_format.h"
#include "files/file_lock.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

constexpr std::uint32_t kRecord = 60;
using Rows = std::map<std::uint32_t, std::uint32_t>;  // key, count

struct Row {
  std::uint32_t key;
  std::uint32_t count;
  unsigned char rest[kRecord - 8];
};
static_assert(sizeof(Row) == kRecord);

std::string record(std::uint32_t key, std::uint32_t count) {
  Row row{key, count, {}};
  std::memset(row.rest, static_cast<int>(key), sizeof row.rest);
  return bytes_of(row);
}
std::string records(const Rows& rows) {
  std::string bytes;
  for (const auto& [key, count] : rows) bytes += record(key, count);
  return bytes;
}
Row row_at(const RecordCache& cache) {
  Row row;
  std::memcpy(&row, filebuf_current(cache), sizeof row);
  return row;
}

std::string delta_path;  // for the routines, which get no context

int compare_keys(const RecordCache& last, const RecordCache& prev) {
  const std::uint32_t a = row_at(last).key;
  const std::uint32_t b = row_at(prev).key;
  return a < b ? -7 : a > b ? 9 : 0;
}

// Writes nothing for a row that did not change, and refuses every 13th new one.
int make_delta(const RecordCache& last, const RecordCache* prev, unsigned char* out,
               std::int32_t interval) {
  Row row = row_at(last);
  if (row.key % 40 == 1) {
    const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
    EXPECT_NE(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "written without a lock";
  }
  if (prev ? row_at(*prev).count == row.count : row.key % 13 == 0) return prev ? 0 : -1;
  row.count = (row.count - (prev ? row_at(*prev).count : 0)) * static_cast<std::uint32_t>(interval);
  std::memcpy(out, &row, sizeof row);
  return 5;
}

constexpr DeltaRoutines kRoutines{kRecord, compare_keys, make_delta};

std::string expected_delta(const Rows& prev, const Rows& last, std::int32_t interval) {
  std::string bytes;
  for (const auto& [key, count] : last) {
    const auto before = prev.find(key);
    const bool is_new = before == prev.end();
    if (is_new ? key % 13 == 0 : before->second == count) continue;
    const std::uint32_t change = count - (is_new ? 0 : before->second);
    bytes +=
        record(key, count).replace(4, 4, bytes_of(change * static_cast<std::uint32_t>(interval)));
  }
  return bytes;
}

std::string header(std::int32_t interval, std::uint32_t up_time, std::int32_t time) {
  return bytes_of(FileHeader{interval, up_time, time, 13});
}

class DeltaFileTest : public testing::Test {
 protected:
  void SetUp() override {
    delta_path = directory_ / "delta";
    take_log();
  }
  int create() {
    return create_delta_file((directory_ / "last").c_str(), (directory_ / "prev").c_str(),
                             delta_path.c_str(), kRoutines, last_);
  }
  void write(const std::string& prev, const std::string& last) {
    write_file(directory_ / "prev", prev);
    write_file(directory_ / "last", last);
  }

  TemporaryDirectory directory_;
  RecordCache last_;
};

TEST_F(DeltaFileTest, IsTheMergeOfBothSamples) {
  std::minstd_rand generator(3);
  const auto random = [&] { return static_cast<std::uint32_t>(generator()); };
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(round);
    Rows prev;
    Rows last;
    // 136 records fill a buffer.
    const unsigned most = round % 3 == 0 ? 5 : round % 3 == 1 ? 140 : 600;
    for (Rows* rows : {&prev, &last}) {
      for (unsigned i = random() % (most + 1); i > 0; --i) (*rows)[random() % most] = random() % 3;
    }
    const auto interval = static_cast<std::int32_t>(random() % 200) - 50;
    write(header(0, 1, 1'000'000) + records(prev),
          header(0, 2, 1'000'000 + interval) + records(last));
    ASSERT_EQ(create(), 1);
    ASSERT_EQ(read_file(delta_path),
              header(interval, 0, 1'000'000 + interval) + expected_delta(prev, last, interval));
  }
  EXPECT_TRUE(take_log().empty());
}

TEST_F(DeltaFileTest, ShortHeadersLeaveAnEmptyFile) {
  const std::string good = header(0, 0, 5) + record(1, 1);
  for (const std::size_t size : {0U, 15U}) {
    for (const bool prev : {true, false}) {
      write(prev ? good.substr(0, size) : good, prev ? good : good.substr(0, size));
      write_file(delta_path, "of old");
      EXPECT_EQ(create(), 1);
      EXPECT_TRUE(std::filesystem::exists(delta_path));
      EXPECT_EQ(read_file(delta_path), "");
      EXPECT_EQ(take_log(),
                std::vector{debug_line(prev ? "Unable to read file header from prev file!"
                                            : "Unable to read file header from last file!")});
    }
  }
}

TEST_F(DeltaFileTest, NumbersItsErrorsAndRemovesTheFile) {
  const std::string head = header(0, 0, 5);
  Rows two_buffers;
  Rows changed;
  for (std::uint32_t key = 0; key < 2 * 8160 / kRecord; ++key) {
    two_buffers[2 * key + 1] = 1;
    changed[2 * key + 1] = 2;
  }
  const std::string full = records(two_buffers);
  constexpr std::size_t kNoLimit = 1 << 20;
  const struct {
    int number;
    std::string prev;
    std::string last;
    std::size_t limit;
    const char* also = nullptr;
  } cases[] = {
      {15, head + full, head + "x", kNoLimit, "Error 2 reading to fill file cache."},
      {16, head + "x", head + full, kNoLimit, "Error 2 reading to fill file cache."},
      {19, head + full + "x", head + full, kNoLimit, "Error 2 reading to fill file cache."},
      {19, head + full + "x", head + record(9999, 1), kNoLimit,
       "Error 2 reading to fill file cache."},
      {20, head + full, head + full + "x", kNoLimit, "Error 2 reading to fill file cache."},
      {17, head, head + full, 0, "Unable to write poll cache to file."},
      {18, head + full, head + records(changed), 100,
       "Not all tallyd cached data written to file."},
      {21, head, head + record(1, 1), 0, "Unable to flush poll cache to file."},
      {21, head, head, 1, "Not all cached data flushed to file."},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.number);
    write(test.prev, test.last);
    write_file(delta_path, "");
    int result = 1;
    {
      const FileSizeLimit limit(test.limit);
      result = create();
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(take_log(), (std::vector{warning_line(test.also),
                                       debug_line("Error " + std::to_string(test.number) +
                                                  " creating delta file.")}));
    EXPECT_FALSE(std::filesystem::exists(delta_path));
  }
}

TEST_F(DeltaFileTest, OpensBeforeItEmpties) {
  const auto expect_error = [this](int number) {
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(take_log(),
              std::vector{debug_line("Error " + std::to_string(number) + " creating delta file.")});
    EXPECT_FALSE(std::filesystem::exists(delta_path));
  };
  write_file(delta_path, "of old");
  expect_error(1);
  write_file(directory_ / "last", header(0, 0, 5));
  expect_error(2);
  write_file(directory_ / "prev", header(0, 0, 5));
  ASSERT_EQ(mkfifo(delta_path.c_str(), 0600), 0);
  {
    const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
    expect_error(25);  // opens, but cannot be emptied
  }
  write_file(directory_ / "elsewhere", "of somebody else");
  ASSERT_EQ(symlink((directory_ / "elsewhere").c_str(), delta_path.c_str()), 0);
  expect_error(3);
  EXPECT_EQ(read_file(directory_ / "elsewhere"), "of somebody else");
  delta_path = directory_ / "missing/delta";
  expect_error(3);
}

TEST_F(DeltaFileTest, KeepsTheOldFileWhileAReaderHoldsIt) {
  write(header(0, 0, 5), header(0, 0, 5));
  write_file(delta_path, "of old");
  UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
  ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
  int result = -1;
  std::thread writer([&] { result = create(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(read_file(delta_path), "of old");
  reader.reset();
  writer.join();
  EXPECT_EQ(result, 1);
  EXPECT_EQ(read_file(delta_path), header(0, 0, 5));
  reader = open_file(delta_path.c_str(), O_RDONLY);
  EXPECT_EQ(flock(reader.get(), LOCK_EX | LOCK_NB), 0) << "the lock has been let go";
}

}  // namespace
}  // namespace tally
