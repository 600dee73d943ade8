// Wire types of the agent: general requests, and the control rows of all tables.
//
// Members stand in wire order and carry the names of the MIB objects (RFC 2819 RMON, RFC 4502
// RMON-2, RFC 2613 SMON, RFC 3287 DSMON) where they are one. Of a control reply only `status` (0:
// an entry follows), the index, the owner and the row status (1: valid) are used; the rest is
// carried. Those named field_N and text_N have no meaning to this program.
#pragma once

#include <cstdint>
#include <tuple>

#include "agent/byte_list.h"

namespace tally {

// The argument of procedures that take none.
struct Nothing {
  static constexpr auto members(auto&) { return std::tie(); }
};

// Argument of pdist_source_totals_get.
struct ControlIndex {
  std::int32_t index = 0;

  static constexpr auto members(auto& self) { return std::tie(self.index); }
};

// Result of agent_null; only whether it comes matters.
struct NullReply {
  std::int32_t value = 0;

  static constexpr auto members(auto& self) { return std::tie(self.value); }
};

// Argument of every control procedure: the row to start after (0: from the start), or to read.
struct ControlKey {
  std::int32_t index = 0;
  std::int32_t request = 0;

  static constexpr auto members(auto& self) { return std::tie(self.index, self.request); }

  friend bool operator==(const ControlKey&, const ControlKey&) = default;
};

// Key of the one-row types with a single key word: start after it, or read just it.
struct IndexedKey {
  std::int32_t control_index = 0;
  std::int32_t row_key = 0;
  std::int32_t request = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.control_index, self.row_key, self.request);
  }

  friend bool operator==(const IndexedKey&, const IndexedKey&) = default;
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

// RMON hostControlEntry.
struct HostControlReply {
  std::int32_t status = 0;
  std::int32_t hostControlIndex = 0;
  std::int32_t hostControlDataSource = 0;
  std::int32_t hostControlTableSize = 0;
  std::uint32_t hostControlLastDeleteTime = 0;
  WireString hostControlOwner;
  std::int32_t hostControlStatus = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.hostControlIndex, self.hostControlDataSource,
                    self.hostControlTableSize, self.hostControlLastDeleteTime,
                    self.hostControlOwner, self.hostControlStatus);
  }
};

// RMON matrixControlEntry.
struct MatrixControlReply {
  std::int32_t status = 0;
  std::int32_t matrixControlIndex = 0;
  std::int32_t matrixControlDataSource = 0;
  std::int32_t matrixControlTableSize = 0;
  std::uint32_t matrixControlLastDeleteTime = 0;
  WireString matrixControlOwner;
  std::int32_t matrixControlStatus = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.matrixControlIndex, self.matrixControlDataSource,
                    self.matrixControlTableSize, self.matrixControlLastDeleteTime,
                    self.matrixControlOwner, self.matrixControlStatus);
  }
};

// RMON-2 protocolDistControlEntry.
struct PdistControlReply {
  std::int32_t status = 0;
  std::int32_t protocolDistControlIndex = 0;
  std::int32_t protocolDistControlDataSource = 0;
  std::uint32_t protocolDistControlDroppedFrames = 0;
  std::uint32_t protocolDistControlCreateTime = 0;
  WireString protocolDistControlOwner;
  std::int32_t protocolDistControlStatus = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.protocolDistControlIndex, self.protocolDistControlDataSource,
                    self.protocolDistControlDroppedFrames, self.protocolDistControlCreateTime,
                    self.protocolDistControlOwner, self.protocolDistControlStatus);
  }
};

// RMON-2 hlHostControlEntry and hlMatrixControlEntry.
struct NlControlReply {
  std::int32_t status = 0;
  std::int32_t index = 0;
  std::int32_t dataSource = 0;
  std::uint32_t nlDroppedFrames = 0;
  std::uint32_t nlInserts = 0;
  std::uint32_t nlDeletes = 0;
  std::int32_t nlMaxDesiredEntries = 0;
  std::uint32_t alDroppedFrames = 0;
  std::uint32_t alInserts = 0;
  std::uint32_t alDeletes = 0;
  std::int32_t alMaxDesiredEntries = 0;
  WireString owner;
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.dataSource, self.nlDroppedFrames, self.nlInserts,
                    self.nlDeletes, self.nlMaxDesiredEntries, self.alDroppedFrames, self.alInserts,
                    self.alDeletes, self.alMaxDesiredEntries, self.owner, self.row_status);
  }
};

// SMON smonVlanStatsControlEntry and smonPrioStatsControlEntry.
struct SmonControlReply {
  std::int32_t status = 0;
  std::int32_t index = 0;
  std::uint32_t dataSource = 0;
  std::uint32_t createTime = 0;
  WireString owner;
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.dataSource, self.createTime, self.owner,
                    self.row_status);
  }
};

// DSMON dsmonStatsControlEntry.
struct DsStatsControlReply {
  std::int32_t status = 0;
  std::uint32_t index = 0;
  std::uint32_t field_3 = 0;
  std::uint32_t field_4 = 0;
  std::int32_t field_5 = 0;
  WireString owner;
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.field_3, self.field_4, self.field_5, self.owner,
                    self.row_status);
  }
};

// DSMON dsmonPdistCtlEntry.
struct DsPdistControlReply {
  std::int32_t status = 0;
  std::int32_t index = 0;
  std::uint32_t field_3 = 0;
  std::int32_t field_4 = 0;
  std::uint32_t field_5 = 0;
  WireString owner;
  std::uint32_t field_7 = 0;
  std::uint32_t field_8 = 0;
  std::uint32_t field_9 = 0;
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.field_3, self.field_4, self.field_5, self.owner,
                    self.field_7, self.field_8, self.field_9, self.row_status);
  }
};

// DSMON dsmonHostCtlEntry.
struct DsHostControlReply {
  std::int32_t status = 0;
  std::int32_t index = 0;
  std::uint32_t field_3 = 0;
  std::uint32_t field_4 = 0;
  std::int32_t field_5 = 0;
  std::int32_t field_6 = 0;
  std::int32_t field_7 = 0;
  std::uint32_t field_8 = 0;
  std::uint32_t field_9 = 0;
  std::uint32_t field_10 = 0;
  WireString owner;
  std::int32_t row_status = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.index, self.field_3, self.field_4, self.field_5, self.field_6,
                    self.field_7, self.field_8, self.field_9, self.field_10, self.owner,
                    self.row_status);
  }
};

}  // namespace tally
