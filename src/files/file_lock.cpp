#include "files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "daemon/base/retry.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

// Pauses between attempts, from what a reader needs for a small file up to what nobody notices.
constexpr std::chrono::milliseconds kFirstPause{1};
constexpr std::chrono::milliseconds kLongestPause{16};

// flock(2) has no time limit, and interrupting it takes a signal handler and leaves a window in
// which the signal comes too early. Only a poll that meets a reader ever pauses here.
bool lock_within(int fd, std::chrono::milliseconds most) {
  const auto deadline = Clock::now() + most;
  auto pause = kFirstPause;
  for (;;) {
    if (retry_interrupted([fd] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0) return true;
    if (errno != EWOULDBLOCK || stopping() || Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(pause);
    pause = std::min(2 * pause, kLongestPause);
  }
}

}  // namespace

UniqueFd open_file(const char* path, int flags) {
  return UniqueFd(retry_interrupted(
      [&] { return open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, kFileMode); }));
}

FileLock::FileLock(int fd, std::chrono::milliseconds most)
    : fd_(fd), locked_(lock_within(fd, most)) {}

FileLock::~FileLock() {
  if (locked_) flock(fd_, LOCK_UN);
}

}  // namespace tally
