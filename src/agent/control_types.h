// Wire types of the agent: general requests, and the control rows of all tables. Members stand in
// wire order and carry the names of the MIB objects (RFC 2819 RMON, RFC 4502 RMON-2, RFC 2613 SMON,
// RFC 3287 DSMON) where they are one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <tuple>

#include "agent/byte_list.h"

namespace tally {

// The argument of procedures that take none.
struct Nothing {
  static constexpr auto members(auto&) { return std::tie(); }
};

// Argument of pdist_source_totals_get, the control index, and result of agent_null, of which only
// whether it comes matters.
struct Number {
  std::int32_t value = 0;

  static constexpr auto members(auto& self) { return std::tie(self.value); }
};

// Request kinds of the control procedures and of those that return one row a call.
inline constexpr std::int32_t kExactRow = 1;  // the row with just this key
inline constexpr std::int32_t kNextRow = 2;   // the row that follows this key

// Argument of every control procedure: the row to start after (0: from the start).
struct ControlKey {
  std::int32_t index = 0;
  std::int32_t request = kNextRow;

  static constexpr auto members(auto& self) { return std::tie(self.index, self.request); }
};

// Key of the one-row types with a single key word: start after it, or read just it.
struct IndexedKey {
  std::int32_t control_index = 0;
  std::int32_t row_key = 0;
  std::int32_t request = kNextRow;

  static constexpr auto members(auto& self) {
    return std::tie(self.control_index, self.row_key, self.request);
  }
};

// What the agent says of itself. Only up_time is used; it goes unchanged into file headers.
struct AgentSystemInfo {
  WireString descr;
  std::uint32_t up_time = 0;
  WireString text_2;
  WireString text_3;
  WireString text_4;
  WireString text_5;
  std::int32_t services = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.descr, self.up_time, self.text_2, self.text_3, self.text_4, self.text_5,
                    self.services);
  }
};

// ControlReply is a control row. Only four members are used: `status` (0: a row follows), the
// index, the owner and the row status (RFC 2819 EntryStatus). Those around the owner are carried.
// Each is four bytes long.
template <std::size_t kBeforeOwner, std::size_t kAfterOwner = 0>
struct ControlReply {
  std::int32_t status = 0;
  std::int32_t index = 0;
  std::array<std::uint32_t, kBeforeOwner> before_owner{};
  WireString owner;
  std::array<std::uint32_t, kAfterOwner> after_owner{};
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.before_owner, self.owner, self.after_owner,
                    self.row_status);
  }
};

// hostControlEntry and matrixControlEntry: DataSource, TableSize, LastDeleteTime.
using HostControlReply = ControlReply<3>;
using MatrixControlReply = ControlReply<3>;
// protocolDistControlEntry: DataSource, DroppedFrames, CreateTime.
using PdistControlReply = ControlReply<3>;
// hlHostControlEntry and hlMatrixControlEntry: DataSource; DroppedFrames, Inserts, Deletes and
// MaxDesiredEntries of the network layer, then of the application layer.
using NlControlReply = ControlReply<9>;
// smonVlanStatsControlEntry and smonPrioStatsControlEntry: DataSource, CreateTime.
using SmonControlReply = ControlReply<2>;
// dsmonStatsControlEntry, dsmonPdistCtlEntry and dsmonHostCtlEntry: of no meaning to this program.
using DsStatsControlReply = ControlReply<3>;
using DsPdistControlReply = ControlReply<3, 3>;
using DsHostControlReply = ControlReply<8>;

}  // namespace tally
