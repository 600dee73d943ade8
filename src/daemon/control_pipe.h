// The control pipe: a FIFO of 12-byte messages that the web application writes.
//
//     0        4        8        12
//     +--------+--------+--------+     three unsigned 32-bit words in the host's
//     |  type  | coll.  | index  |     byte order, no header, no padding; nobody
//     +--------+--------+--------+     is answered
#pragma once

#include <cstdint>

#include "files/unique_fd.h"

namespace tally {

enum class MessageType : std::uint32_t {
  terminate = 0,
  set_interval = 1,  // the collection type word holds the seconds, signed
  viewing = 2,
  create = 3,
  destroy = 4,
  reload_settings = 5,
  rescan = 6,
  none = 7,  // accepted and ignored
};
inline constexpr std::uint32_t kLastMessageType = 7;

struct ControlMessage {
  std::uint32_t type;
  std::uint32_t collection_type;
  std::uint32_t collection_index;
};
static_assert(sizeof(ControlMessage) == 12);

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

  // read reads one message. Bytes that are not a whole one are dropped.
  [[nodiscard]] Read read(ControlMessage& message);

 private:
  UniqueFd fd_;
  bool made_ = false;
};

}  // namespace tally
