#include "daemon/startup.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/base/retry.h"
#include "files/unique_fd.h"

namespace tally {
namespace {

bool write_pid(int fd) {
  char text[16];
  const int length = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  return retry_interrupted([&] { return write(fd, text, static_cast<std::size_t>(length)); }) ==
         length;
}

}  // namespace

bool detach() {
  const pid_t child = fork();
  if (child < 0) {
    log_warning("Error forking child for tallyd daemon.");
    return false;
  }
  if (child > 0) _exit(0);
  setsid();
  umask(0);
  return true;
}

PidFile take_pid_file() {
  // Anybody may write to the file's directory, so a symbolic link in its place is not followed.
  UniqueFd fd(open(kPidFile, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0777));
  if (!fd) {
    log_warning("Error opening tallyd PID file %s", kPidFile);
    return PidFile::failed;
  }
  if (retry_interrupted([&] { return flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno == EACCES || errno == EAGAIN) {
      log_warning("tallyd already running.");
      return PidFile::held_by_another;
    }
    log_warning("Error locking tallyd PID file %s", kPidFile);
    return PidFile::failed;
  }
  if (ftruncate(fd.get(), 0) != 0) {
    log_warning("Error truncating tallyd PID file %s", kPidFile);
    return PidFile::failed;
  }
  if (!write_pid(fd.get())) {
    log_warning("Error writing tallyd PID file %s", kPidFile);
    return PidFile::failed;
  }
  (void)fd.release();  // stays open: the lock lasts as long as the process
  return PidFile::taken;
}

}  // namespace tally
