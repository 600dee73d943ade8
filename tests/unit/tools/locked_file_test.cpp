#include "locked_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <future>
#include <thread>

#include "files/unique_fd.h"
#include "temporary_directory.h"

namespace tally {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class LockedFile : public testing::Test {
 protected:
  // open_writer opens as the daemon does: empties the file, then waits for the lock.
  UniqueFd open_writer() const {
    UniqueFd fd(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    EXPECT_EQ(flock(fd.get(), LOCK_EX), 0);
    return fd;
  }

  static void put(const UniqueFd& fd, const std::string& text) {
    ASSERT_EQ(write(fd.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  static std::string text(const FileContent& content) {
    return {content.bytes.begin(), content.bytes.end()};
  }

  TemporaryDirectory directory_;
  std::string path_ = directory_ / "host_1_delta.bin";
};

TEST_F(LockedFile, TellsWhatIsThere) {
  EXPECT_EQ(read_shared(path_, seconds{30}).outcome, ReadOutcome::absent);
  EXPECT_FALSE(stamp_of(path_));

  put(open_writer(), "rates");
  const FileContent content = read_shared(path_, milliseconds{0});
  EXPECT_EQ(content.outcome, ReadOutcome::done);
  EXPECT_EQ(text(content), "rates");
  EXPECT_EQ(stamp_of(path_), content.stamp);

  put(open_writer(), "other");
  EXPECT_NE(stamp_of(path_), content.stamp);

  open_writer();
  const FileContent empty = read_shared(path_, milliseconds{0});
  EXPECT_EQ(empty.outcome, ReadOutcome::done);
  EXPECT_TRUE(empty.bytes.empty());

  EXPECT_EQ(read_shared(directory_.path(), milliseconds{0}).error, "not a regular file");
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(read_shared(fifo, seconds{30}).error, "not a regular file");
}

TEST_F(LockedFile, GivesUpOnAWriterThatStays) {
  const UniqueFd writer = open_writer();
  int waits = 0;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(read_shared(path_, milliseconds{100}, [&] { ++waits; }).outcome, ReadOutcome::writing);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds{100});
  EXPECT_EQ(waits, 1);
  EXPECT_EQ(read_shared(path_, milliseconds{0}, [&] { ++waits; }).outcome, ReadOutcome::writing);
  EXPECT_EQ(waits, 1);
}

TEST_F(LockedFile, WaitsForTheWholeFile) {
  UniqueFd writer = open_writer();
  put(writer, "first half, ");
  std::promise<void> waiting;
  auto content = std::async(std::launch::async, [&] {
    return read_shared(path_, seconds{30}, [&] { waiting.set_value(); });
  });
  ASSERT_EQ(waiting.get_future().wait_for(seconds{10}), std::future_status::ready);
  put(writer, "second half");
  writer.reset();
  EXPECT_EQ(text(content.get()), "first half, second half");
}

TEST_F(LockedFile, FollowsAFileThatIsMadeAnew) {
  UniqueFd old_writer = open_writer();
  put(old_writer, "old");
  std::promise<void> waiting;
  auto content = std::async(std::launch::async, [&] {
    return read_shared(path_, seconds{30}, [&] { waiting.set_value(); });
  });
  ASSERT_EQ(waiting.get_future().wait_for(seconds{10}), std::future_status::ready);
  std::filesystem::remove(path_);
  put(open_writer(), "new");
  old_writer.reset();
  EXPECT_EQ(text(content.get()), "new");
}

// One of the daemon's writers empties the file before it asks for the lock, under the eyes of
// whoever reads. A reader may see that there is nothing, and never a part.
TEST_F(LockedFile, NeverTakesTornBytes) {
  const std::string whole(3 << 20, 'r');
  std::atomic<bool> stop = false;
  std::thread daemon([&] {
    for (unsigned round = 0; !stop; ++round) {
      {
        const UniqueFd writer = open_writer();
        put(writer, whole);
      }
      std::this_thread::sleep_for(std::chrono::microseconds{round % 16 * 2000});
    }
  });
  int whole_files = 0;
  const auto end = std::chrono::steady_clock::now() + seconds{20};
  while (whole_files < 30 && std::chrono::steady_clock::now() < end) {
    const FileContent content = read_shared(path_, milliseconds{0});
    if (content.outcome != ReadOutcome::done || content.bytes.empty()) continue;
    EXPECT_EQ(content.bytes.size(), whole.size());
    ++whole_files;
  }
  stop = true;
  daemon.join();
  EXPECT_GT(whole_files, 0);
}

}  // namespace
}  // namespace tally
