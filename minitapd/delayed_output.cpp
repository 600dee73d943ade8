#include "minitapd/delayed_output.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace minitapd {

namespace {

constexpr std::chrono::milliseconds kRetry{10};  // while the peer does not read

}  // namespace

void DelayedOutput::push(int fd, Delivery delivery, Clock::time_point now) {
  UniqueFd own(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!own) return;
  const auto due = now + delivery.delay;
  pending_.push_back({std::move(own), std::move(delivery), 0, due});
  run_due(now);
}

void DelayedOutput::run_due(Clock::time_point now) {
  pending_.remove_if([now](Pending& pending) { return pending.due <= now && !run(pending, now); });
}

bool DelayedOutput::run(Pending& pending, Clock::time_point now) {
  const Delivery& out = pending.delivery;
  do {
    // A chunk that went out in part keeps its end, so that the timetable stays that of the chunks.
    const std::size_t chunk = out.chunk == 0 ? out.stream.size() : out.chunk;
    const std::size_t end =
        chunk == 0 ? 0 : std::min((pending.sent / chunk + 1) * chunk, out.stream.size());
    while (pending.sent < end) {
      const ssize_t n = ::send(pending.fd.get(), out.stream.data() + pending.sent,
                               end - pending.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n >= 0) {
        pending.sent += static_cast<std::size_t>(n);
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        pending.due = now + kRetry;
        return true;
      } else if (errno != EINTR) {
        return false;
      }
    }
    pending.due = now + out.pause;
  } while (pending.sent < out.stream.size() && pending.due <= now);
  if (pending.sent < out.stream.size()) return true;
  // A shutdown, not a close: the RPC library still owns the connection and sees its end itself.
  if (out.close_after) ::shutdown(pending.fd.get(), SHUT_RDWR);
  return false;
}

std::optional<DelayedOutput::Clock::time_point> DelayedOutput::next_due() const {
  if (pending_.empty()) return std::nullopt;
  return std::ranges::min_element(pending_, {}, &Pending::due)->due;
}

}  // namespace minitapd
