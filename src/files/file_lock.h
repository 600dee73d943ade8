// Opening and locking the collection files.
#pragma once

#include "files/unique_fd.h"

namespace tally {

// open_file opens a path with open(2)'s flags and the mode of collection files; close-on-exec, and
// tried again when a signal interrupts it. The web server may write to the directory: a symbolic
// link is not followed, and a FIFO does not block. The result may be empty (errno tells why).
[[nodiscard]] UniqueFd open_file(const char* path, int flags);

// FileLock holds an exclusive flock for a scope; readers take a shared one.
class FileLock {
 public:
  // Waits for the lock. locked() is false when it failed.
  explicit FileLock(int fd);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool locked() const { return locked_; }

 private:
  int fd_;
  bool locked_;
};

}  // namespace tally
