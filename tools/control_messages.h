// Control messages, and how they are put into the daemon's control pipe.
//
// A message is three unsigned 32-bit words in the host's byte order. Nobody answers: what the
// daemon thinks of a message stands in its log.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tally {

enum class MessageCode : std::uint32_t {
  terminate = 0,
  set_interval = 1,
  viewing = 2,
  create = 3,
  destroy = 4,
  reload_settings = 5,
  rescan = 6,
};

struct ControlMessage {
  MessageCode code;
  std::uint32_t type;   // collection type; of set_interval the seconds, signed
  std::uint32_t index;  // control index; 0 for the supervisor kinds
};
static_assert(sizeof(ControlMessage) == 12);

// send_message writes one whole message into the pipe. Never blocks on a pipe that nobody reads;
// while the pipe is full it tries again for as long as `patience` says. Returns an empty text when
// the message is in the pipe, else why the daemon cannot be reached. The process must ignore
// SIGPIPE: the reader may go between the opening and the writing.
std::string send_message(const std::string& pipe, const ControlMessage& message,
                         std::chrono::milliseconds patience);

}  // namespace tally
