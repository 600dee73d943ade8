// The control pipe: a FIFO of messages (daemon/base/control_message.h) that the web application
// writes.
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
    skipped,  // not a whole message, or an error (logs)
    closed,   // end of file (logs): cannot happen while the daemon's own end is open for writing
  };

  ControlPipe() = default;
  ControlPipe(const ControlPipe&) = delete;
  ControlPipe& operator=(const ControlPipe&) = delete;

  // make removes what stands at the path, makes the FIFO and opens it. False on failure (logs).
  [[nodiscard]] bool make();

  // remove closes the FIFO and removes it, as far as it was made.
  void remove();

  // wait waits for a message, or for `seconds` if these are not negative. 1: there is something to
  // read; 0: the time has passed; -1: error (logs).
  int wait(std::int32_t seconds);

  // terminate_waits tells whether a terminate message waits in the pipe. Nothing is taken out.
  bool terminate_waits() const;

  // read reads one message. Bytes that are not a whole one are dropped.
  [[nodiscard]] Read read(ControlMessage& message);

 private:
  UniqueFd fd_;
  bool made_ = false;
};

}  // namespace tally
