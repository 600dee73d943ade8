// Puts one message into the control pipe, now or not at all.
#pragma once

#include <string>

#include "daemon/control_message.h"

namespace tally::cgi {

// What became of a message: a HTTP status (200, or 503 when it may go through later, else 500) and
// what to tell the person who asked; no text when it is in the pipe.
struct Delivery {
  int status;
  std::string text;
};

// deliver writes the 12 bytes of a message with one write. It never waits: neither for a reader,
// nor for room in the pipe. Follows no symbolic link and writes to nothing but a FIFO. The process
// must ignore SIGPIPE.
Delivery deliver(const std::string& pipe, const ControlMessage& message);

}  // namespace tally::cgi
