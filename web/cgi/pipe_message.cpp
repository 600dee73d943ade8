#include "pipe_message.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "files/unique_fd.h"

namespace tally::cgi {
namespace {

Delivery failure(int error, const std::string& pipe) {
  switch (error) {
    case ENOENT:
      return {503, "There is no control pipe: tallyd is not running. Start it, then try again."};
    case ENXIO:
    case EPIPE:
      return {503,
              "Nobody reads the control pipe: tallyd is not running. Start it, then try again."};
    case EAGAIN:
      return {503, "The control pipe is full: tallyd is busy or hangs. Try again in a minute."};
    case EACCES:
    case EPERM:
      return {500,
              "The web server's user may not write to " + pipe + ": its rights have to be mended."};
    case ELOOP:
      return {500, pipe + " is a symbolic link, which is not followed."};
    default:
      return {500, pipe + ": " + std::strerror(error)};
  }
}

}  // namespace

Delivery deliver(const std::string& pipe, const ControlMessage& message) {
  const UniqueFd fd(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat state {};
  if (!fd || fstat(fd.get(), &state) != 0) return failure(errno, pipe);
  if (!S_ISFIFO(state.st_mode)) return {500, pipe + " is no FIFO: nothing was written."};
  for (;;) {
    // Below PIPE_BUF: all of it or nothing.
    const ssize_t written = write(fd.get(), &message, sizeof message);
    if (written == static_cast<ssize_t>(sizeof message)) return {200, {}};
    if (written >= 0) return failure(EIO, pipe);
    if (errno != EINTR) return failure(errno, pipe);
  }
}

}  // namespace tally::cgi
