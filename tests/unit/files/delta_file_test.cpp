// What the generic delta file does to a file that is there, its lock, and arguments that the daemon
// never passes. End-to-end tests check the merge and the record cache, scripts/campaign their
// failures.
#include "files/delta_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cstring>
#include <future>
#include <string>

#include "files/file_format.h"
#include "files/file_lock.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

using namespace std::chrono_literals;

std::string delta_path;  // for the routine, which takes no context

// Copies a record of four bytes.
int make_delta(const RecordCache& last, const RecordCache* /*prev*/, unsigned char* out,
               std::int32_t /*interval*/) {
  const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
  EXPECT_NE(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "written without a lock";
  std::memcpy(out, filebuf_current(last), 4);
  return 1;
}

class DeltaFileTest : public testing::Test {
 protected:
  void SetUp() override {
    delta_path = directory_ / "delta";
    write_file(directory_ / "prev", header(1));
    write_file(directory_ / "last", header(6) + "rows");
  }
  int create() {
    constexpr DeltaRoutines kRoutines{4, nullptr, make_delta};
    return create_delta_file((directory_ / "last").c_str(), (directory_ / "prev").c_str(),
                             delta_path.c_str(), kRoutines, last_);
  }
  static std::string header(std::int32_t time, std::int32_t interval = 0) {
    return bytes_of(FileHeader{interval, 0, time, 13});
  }

  TemporaryDirectory directory_;
  RecordCache last_;
};

TEST_F(DeltaFileTest, FollowsNoLink) {
  write_file(directory_ / "elsewhere", "of somebody else");
  std::filesystem::create_symlink(directory_ / "elsewhere", delta_path);
  EXPECT_EQ(create(), 0);
  EXPECT_FALSE(std::filesystem::exists(delta_path));
  EXPECT_EQ(read_file(directory_ / "elsewhere"), "of somebody else");
}

TEST_F(DeltaFileTest, LeavesTheOldFileToAReaderWithALock) {
  write_file(delta_path, "older");
  std::future<int> created;
  {
    const UniqueFd reader = open_file(delta_path.c_str(), O_RDONLY);
    ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
    created = std::async(std::launch::async, [this] { return create(); });
    EXPECT_EQ(created.wait_for(100ms), std::future_status::timeout);
    EXPECT_EQ(read_file(delta_path), "older");
  }
  EXPECT_EQ(created.get(), 1);
  EXPECT_EQ(read_file(delta_path), header(6, 5) + "rows");
}

TEST(Files, ArgumentsThatTheDaemonNeverPasses) {
  RecordCache cache;
  filebuf_init(cache, -1);
  EXPECT_EQ(filebuf_put(cache, nullptr, kFilebufSize + 1), 0);
  take_log();
  for (const std::uint32_t type : {11U, 15U, 0xffffffffU}) remove_collection_files(type, 1);
  EXPECT_EQ(take_log(),
            std::vector(3, debug_line("Attempt to remove data for invalid collection type")));
  EXPECT_EQ(seconds_between(-2147483647 - 1, 2147483647), -1);  // wraps, like its field
}

}  // namespace
}  // namespace tally
