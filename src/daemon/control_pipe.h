// The control pipe: a FIFO through which the web application sends messages
// (daemon/base/control_message.h).
#pragma once

#include <cstdint>

#include "daemon/base/control_message.h"
#include "files/unique_fd.h"

namespace tally {

// ControlPipe is the FIFO and the daemon's end of it.
class ControlPipe {
 public:
  enum class Read {
    message,
    skipped,  // a partial message, or an error (logs)
    closed,   // end of file (logs): cannot happen while the daemon's own end is open for writing
  };

  ControlPipe() = default;
  ControlPipe(const ControlPipe&) = delete;
  ControlPipe& operator=(const ControlPipe&) = delete;

  // make removes whatever is at the path, then makes and opens the FIFO. False on failure (logs).
  [[nodiscard]] bool make();

  // remove closes the FIFO, and unlinks it if make() created it.
  void remove();

  // wait waits for a message, for ever if `seconds` is negative. 1: there is something to read; 0:
  // timed out; -1: error (logs).
  int wait(std::int32_t seconds);

  // terminate_waits reports whether the pipe holds a terminate message. It consumes nothing.
  bool terminate_waits() const;

  // read reads one message. A partial one is dropped.
  [[nodiscard]] Read read(ControlMessage& message);

 private:
  UniqueFd fd_;
  bool made_ = false;
};

}  // namespace tally
