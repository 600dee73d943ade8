#include "pipe/pipe_writer.h"

#include <fcntl.h>
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

constexpr const char* kMakeAnew = "start tallyd again, which makes it anew";

PipeAnswer answer(PipeState state, const std::string& pipe, int error = 0) {
  switch (state) {
    case PipeState::read:
      return {state, "read by somebody", {}, {}};
    case PipeState::unread:
      return {state, "nobody reads it", "nobody reads " + pipe + ": tallyd is not running",
              "start it"};
    case PipeState::absent:
      return {state, "absent", "there is no control pipe " + pipe,
              "start tallyd, which makes it; its directory has to exist"};
    case PipeState::full:
      return {state, "full", pipe + " is full: tallyd is busy or hangs",
              "try again in a minute, or see 'tallyctl check'"};
    case PipeState::symbolic_link:
      return {state, "a symbolic link", pipe + " is a symbolic link, which is not followed",
              kMakeAnew};
    case PipeState::not_a_fifo:
      return {state, "not a FIFO", pipe + " is not a FIFO, so nothing is written to it", kMakeAnew};
    case PipeState::forbidden:
      return {state, "not accessible",
              "user " + std::to_string(geteuid()) + " has no access to " + pipe,
              "run this as root, or become a member of the directory's group"};
    case PipeState::failed:
      break;
  }
  return {state, "not accessible", pipe + ": " + std::strerror(error),
          "look at its directory and at the system's own log"};
}

PipeAnswer failure(int error, const std::string& pipe) {
  switch (error) {
    case ENXIO:
    case EPIPE:
      return answer(PipeState::unread, pipe);
    case ENOENT:
      return answer(PipeState::absent, pipe);
    case EAGAIN:
      return answer(PipeState::full, pipe);
    case ELOOP:
      return answer(PipeState::symbolic_link, pipe);
    case EACCES:
    case EPERM:
      return answer(PipeState::forbidden, pipe);
    default:
      return answer(PipeState::failed, pipe, error);
  }
}

PipeAnswer open_pipe(const std::string& pipe, UniqueFd& fd) {
  fd.reset(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0) return failure(errno, pipe);
  return answer(S_ISFIFO(status.st_mode) ? PipeState::read : PipeState::not_a_fifo, pipe);
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

PipeAnswer probe_pipe(const std::string& pipe) {
  UniqueFd fd;
  return open_pipe(pipe, fd);
}

PipeAnswer send_message(const std::string& pipe, const ControlMessage& message,
                        std::chrono::milliseconds patience) {
  UniqueFd fd;
  PipeAnswer opened = open_pipe(pipe, fd);
  if (opened.state != PipeState::read) return opened;
  const auto deadline = Clock::now() + patience;
  for (;;) {
    const ssize_t written = write(fd.get(), &message, sizeof message);
    if (written == static_cast<ssize_t>(sizeof message)) return opened;
    const int error = written < 0 ? errno : EIO;
    if (error == EINTR) continue;
    if (error != EAGAIN || !wait_for_room(fd.get(), deadline)) return failure(error, pipe);
  }
}

}  // namespace tally
