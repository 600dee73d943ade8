#include "pipe/pipe_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "files/unique_fd.h"

namespace tally {

// Up to PIPE_BUF bytes are written whole or not at all, also between several writers.
static_assert(sizeof(ControlMessage) <= PIPE_BUF);

namespace {

using Clock = std::chrono::steady_clock;

std::string no_reader(const std::string& pipe) {
  return fmt::format("no daemon is reading {}; start tallyd, or see 'tallyctl check'", pipe);
}

// wait_for_room waits until the pipe takes a message or the deadline passes.
bool wait_for_room(int fd, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  if (left.count() <= 0) return false;
  pollfd pipe{fd, POLLOUT, 0};
  (void)poll(&pipe, 1, static_cast<int>(left.count()));  // the next write tells what came of it
  return true;
}

}  // namespace

std::string send_message(const std::string& pipe, const ControlMessage& message,
                         std::chrono::milliseconds patience) {
  const UniqueFd fd(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    if (errno == ENXIO) return no_reader(pipe);
    if (errno == ENOENT)
      return fmt::format("there is no control pipe {}; tallyd makes it when it starts", pipe);
    return fmt::format("cannot open {}: {}", pipe, std::strerror(errno));
  }
  struct stat state {};
  if (fstat(fd.get(), &state) != 0 || !S_ISFIFO(state.st_mode)) {
    return fmt::format("{} is not a FIFO; remove it and start tallyd again", pipe);
  }
  const auto deadline = Clock::now() + patience;
  for (;;) {
    const ssize_t written = write(fd.get(), &message, sizeof message);
    if (written == static_cast<ssize_t>(sizeof message)) return {};
    if (written >= 0) return fmt::format("{} took only a part of the message", pipe);
    if (errno == EPIPE) return no_reader(pipe);
    if (errno == EAGAIN) {
      if (!wait_for_room(fd.get(), deadline)) {
        return fmt::format("{} is full: the daemon does not read it; see 'tallyctl check'", pipe);
      }
    } else if (errno != EINTR) {
      return fmt::format("cannot write to {}: {}", pipe, std::strerror(errno));
    }
  }
}

}  // namespace tally
