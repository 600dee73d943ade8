#include "files/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "files/file_format.h"

namespace tally {

UniqueFd open_file(const char* path, int flags) {
  int fd = -1;
  do {
    fd = open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, kFileMode);
  } while (fd < 0 && errno == EINTR);
  return UniqueFd(fd);
}

FileLock::FileLock(int fd) : fd_(fd) {
  int result = 0;
  do {
    result = flock(fd_, LOCK_EX);
  } while (result != 0 && errno == EINTR);
  locked_ = result == 0;
}

FileLock::~FileLock() {
  if (locked_) flock(fd_, LOCK_UN);
}

}  // namespace tally
