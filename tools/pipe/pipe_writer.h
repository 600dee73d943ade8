// Puts control messages into the daemon's control pipe.
//
// Nobody answers: what the daemon thinks of a message stands in its log.
#pragma once

#include <chrono>
#include <string>

#include "daemon/control_message.h"

namespace tally {

// send_message writes one whole message into the pipe. Never blocks on a pipe that nobody reads;
// while the pipe is full it tries again for as long as `patience` says. Returns an empty text when
// the message is in the pipe, else why the daemon cannot be reached. The process must ignore
// SIGPIPE: the reader may go between the opening and the writing.
std::string send_message(const std::string& pipe, const ControlMessage& message,
                         std::chrono::milliseconds patience);

}  // namespace tally
