// Puts control messages into the daemon's control pipe.
//
// Nobody answers: what the daemon makes of a message is in its log. No symbolic link is
// followed and nothing but a FIFO is written to, whatever lies in the pipe's place.
#pragma once

#include <chrono>
#include <string>

#include "daemon/base/control_message.h"

namespace tally {

enum class PipeState {
  read,           // somebody reads it; of a message: it is in the pipe
  unread,         // it is there, and nobody reads it
  absent,         // there is no such file
  full,           // there was no room for the message
  symbolic_link,  // or
  not_a_fifo,     // something else lies in its place
  forbidden,      // this user may not write to it
  failed,         // the system said something else
};

struct PipeAnswer {
  PipeState state;
  const char* word;     // the state in a few words, for an overview
  std::string trouble;  // what is wrong, and
  std::string advice;   // what to do about it; both empty when all is well

  std::string text() const { return trouble.empty() ? trouble : trouble + "; " + advice; }
};

// probe_pipe tells whether a message could be sent, and sends none.
PipeAnswer probe_pipe(const std::string& pipe);

// send_message writes one whole message into the pipe. It never waits for a reader; while the pipe
// is full it tries again for as long as `patience` says. The process must ignore SIGPIPE: the
// reader may go between the opening and the writing.
PipeAnswer send_message(const std::string& pipe, const ControlMessage& message,
                        std::chrono::milliseconds patience);

}  // namespace tally
