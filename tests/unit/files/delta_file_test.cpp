// What the generic delta file does to a file that is there, and its lock. End-to-end tests check
// the merge, scripts/campaign its failures.
#include "files/delta_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "files/file_format.h"
#include "files/file_lock.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

using namespace std::chrono_literals;

struct Row {
  std::uint32_t key;
  std::uint32_t count;
};

// A record starts with its row; the rest follows from that.
constexpr std::uint32_t kRecord = 60;
std::string record(const Row& row) {
  return bytes_of(row) + std::string(kRecord - sizeof row, static_cast<char>(row.key + row.count));
}

Row current(const RecordCache& cache) {
  Row row;
  std::memcpy(&row, filebuf_current(cache), sizeof row);
  return row;
}

std::string delta_path;  // for the routines, which take no context

std::string header(std::uint32_t up_time = 0) {
  return bytes_of(FileHeader{0, up_time, 5, 13});
}

int compare_keys(const RecordCache& last, const RecordCache& prev) {
  return static_cast<int>(current(last).key - current(prev).key);
}

int make_delta(const RecordCache& last, const RecordCache* prev, unsigned char* out,
               std::int32_t /*interval*/) {
  const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
  EXPECT_NE(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "written without a lock";
  const Row row = current(last);
  std::memcpy(out, record(row).data(), kRecord);
  return !prev || current(*prev).count != row.count ? 5 : 0;
}

class DeltaFileTest : public testing::Test {
 protected:
  void SetUp() override {
    delta_path = directory_ / "delta";
    take_log();
  }
  int create() {
    constexpr DeltaRoutines kRoutines{kRecord, compare_keys, make_delta};
    return create_delta_file((directory_ / "last").c_str(), (directory_ / "prev").c_str(),
                             delta_path.c_str(), kRoutines, last_);
  }
  void write(const std::string& prev, const std::string& last) {
    write_file(directory_ / "prev", prev);
    write_file(directory_ / "last", last);
  }
  static LogLine error(int number) {
    return debug_line("Error " + std::to_string(number) + " creating delta file.");
  }

  TemporaryDirectory directory_;
  RecordCache last_;
};

TEST_F(DeltaFileTest, OpensBeforeItEmpties) {
  const auto expect_error = [this](int number) {
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(take_log(), std::vector{error(number)});
    EXPECT_FALSE(std::filesystem::exists(delta_path));
  };
  write_file(delta_path, "of old");
  expect_error(1);
  write_file(directory_ / "last", header());
  expect_error(2);
  write_file(directory_ / "prev", header());
  write_file(directory_ / "elsewhere", "of somebody else");
  std::filesystem::create_symlink(directory_ / "elsewhere", delta_path);
  expect_error(3);
  EXPECT_EQ(read_file(directory_ / "elsewhere"), "of somebody else");
}

TEST_F(DeltaFileTest, LeavesTheOldFileToAReaderWithALock) {
  write(header(7), header(8) + record({1, 1}));
  write_file(delta_path, "older");
  std::future<int> created;
  {
    const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
    ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
    const UniqueFd writer = open_file(delta_path.c_str(), O_WRONLY);
    EXPECT_FALSE(FileLock(writer.get(), 30ms).locked());
    created = std::async(std::launch::async, [this] { return create(); });
    EXPECT_EQ(created.wait_for(100ms), std::future_status::timeout);
    EXPECT_EQ(read_file(delta_path), "older");
  }
  EXPECT_EQ(created.get(), 1);
  EXPECT_EQ(read_file(delta_path), header() + record({1, 1}));
}

}  // namespace
}  // namespace tally
