// Streams that are sent to a timetable, beside the ordinary replies.
//
// Every delivery has a duplicate of its connection's descriptor, so that the RPC library may close
// the connection at any time. Nothing here blocks: the server's loop asks for the next due time and
// runs what is due. Not thread-safe.
#pragma once

#include <chrono>
#include <list>
#include <optional>

#include "minitapd/reply_fault.h"
#include "minitapd/unique_fd.h"

namespace minitapd {

class DelayedOutput {
 public:
  using Clock = std::chrono::steady_clock;

  // push takes a delivery for the connection `fd`, which it duplicates, and writes what is due
  // already. A delivery to a peer that is gone is dropped.
  void push(int fd, Delivery delivery, Clock::time_point now);

  // run_due writes what is due.
  void run_due(Clock::time_point now);

  [[nodiscard]] std::optional<Clock::time_point> next_due() const;

 private:
  struct Pending {
    UniqueFd fd;
    Delivery delivery;
    std::size_t sent = 0;
    Clock::time_point due;
  };
  static bool run(Pending& pending, Clock::time_point now);  // false when it is done

  std::list<Pending> pending_;
};

}  // namespace minitapd
