#include "files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "daemon/base/retry.h"
#include "files/file_format.h"

namespace tally {

UniqueFd open_file(const char* path, int flags) {
  return UniqueFd(retry_interrupted(
      [&] { return open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, kFileMode); }));
}

FileLock::FileLock(int fd)
    : fd_(fd), locked_(retry_interrupted([fd] { return flock(fd, LOCK_EX); }) == 0) {}

FileLock::~FileLock() {
  if (locked_) flock(fd_, LOCK_UN);
}

}  // namespace tally
