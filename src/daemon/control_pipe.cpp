#include "daemon/control_pipe.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"

namespace tally {

bool ControlPipe::make() {
  std::remove(kControlPipe);
  if (mkfifo(kControlPipe, 0777) != 0) {
    log_warning("Cannot create tallyd pipe.");
    return false;
  }
  made_ = true;
  // Also open for writing, so that the daemon sees no end of file when the last writer leaves.
  fd_.reset(open(kControlPipe, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!fd_ || fd_.get() >= FD_SETSIZE) {
    log_warning("Error opening tallyd pipe.");
    return false;
  }
  return true;
}

void ControlPipe::remove() {
  fd_.reset();
  if (made_) std::remove(kControlPipe);
  made_ = false;
}

int ControlPipe::wait(std::int32_t seconds) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd_.get(), &readable);
  timeval timeout{seconds, 0};
  const int result =
      select(fd_.get() + 1, &readable, nullptr, nullptr, seconds < 0 ? nullptr : &timeout);
  if (result < 0) {
    const int error = errno;
    log_debug("Error during select() operation.");
    log_debug("%s", std::strerror(error));
  }
  return result;
}

// tee(2) copies the waiting bytes to a pipe of our own, which is split into messages as read()
// will.
bool ControlPipe::terminate_waits() const {
  int waiting = 0;
  if (ioctl(fd_.get(), FIONREAD, &waiting) != 0 || waiting == 0) return false;
  int ends[2];
  if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) return false;
  const UniqueFd out(ends[0]);
  const UniqueFd in(ends[1]);
  if (tee(fd_.get(), in.get(), static_cast<std::size_t>(waiting), SPLICE_F_NONBLOCK) <= 0) {
    return false;
  }
  ControlMessage message;
  while (::read(out.get(), &message, sizeof message) == sizeof message) {
    if (message.type == static_cast<std::uint32_t>(MessageType::terminate)) return true;
  }
  return false;
}

ControlPipe::Read ControlPipe::read(ControlMessage& message) {
  const ssize_t got = ::read(fd_.get(), &message, sizeof message);
  if (got == 0) {
    log_debug("0 bytes read from pipe");
    return Read::closed;
  }
  if (got < 0) {
    const int error = errno;
    log_debug("errno %d, %s", error, std::strerror(error));
    return Read::skipped;
  }
  if (got != static_cast<ssize_t>(sizeof message)) {
    log_debug("Unexpected message size found in pipe.");
    return Read::skipped;
  }
  return Read::message;
}

}  // namespace tally
