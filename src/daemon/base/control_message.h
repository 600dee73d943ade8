// The message of the control pipe, shared by the daemon and the tools.
//
//     0        4        8        12
//     +--------+--------+--------+     three unsigned 32-bit words in the host's
//     |  type  | coll.  | index  |     byte order, no header, no padding, no
//     +--------+--------+--------+     reply
#pragma once

#include <cstdint>

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

}  // namespace tally
