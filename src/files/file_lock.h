// Opening and locking the collection files.
#pragma once

#include <chrono>

#include "files/unique_fd.h"

namespace tally {

// open_file opens a path with open(2)'s flags and kFileMode, close-on-exec. The web server may
// write to the directory, so a symbolic link is not followed and a FIFO does not block. Empty on
// failure (see errno).
[[nodiscard]] UniqueFd open_file(const char* path, int flags);

// A reader that never releases its shared lock must not stop the daemon. It gets as long as a call
// to the agent.
inline constexpr std::chrono::seconds kLockTimeout{25};

// FileLock holds an exclusive flock for a scope; readers take a shared one.
class FileLock {
 public:
  // Waits for the lock, up to `most`. locked() is false on failure, or when the process is about to
  // end (daemon/base/stop.h).
  explicit FileLock(int fd, std::chrono::milliseconds most = kLockTimeout);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool locked() const { return locked_; }

 private:
  int fd_;
  bool locked_;
};

}  // namespace tally
