// Wire types of the agent's network-layer tables (RFC 4502 nlHostTable and nlMatrixSDTable), read
// in batches. Members stand in wire order; time marks and reserved words are sent as 0.
#pragma once

#include <cstdint>
#include <tuple>

#include "agent/byte_list.h"
#include "agent/wire_rows.h"

namespace tally {

// Start of a batch of network hosts.
struct NlHostTableKey {
  std::int32_t hlHostControlIndex = 0;
  std::uint32_t nlHostTimeMark = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t reserved_1 = 0;
  ByteList nlHostAddress;
  std::int32_t mode = kBatchMode;
  std::int32_t reserved_2 = 0;
  std::int32_t count = kBatchRows;

  static constexpr auto members(auto& self) {
    return std::tie(self.hlHostControlIndex, self.nlHostTimeMark, self.protocolDirLocalIndex,
                    self.reserved_1, self.nlHostAddress, self.mode, self.reserved_2, self.count);
  }
};

// RMON-2 nlHostEntry.
struct NlHostRow {
  std::int32_t row_status = 0;
  std::uint32_t nlHostTimeMark = 0;
  ByteList nlHostAddress;
  std::uint64_t nlHostInPkts = 0;
  std::uint64_t nlHostOutPkts = 0;
  std::uint64_t nlHostInOctets = 0;
  std::uint64_t nlHostOutOctets = 0;
  std::uint64_t nlHostOutMacNonUnicastPkts = 0;
  std::uint32_t nlHostCreateTime = 0;
  std::int32_t hlHostControlIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t reserved = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.row_status, self.nlHostTimeMark, self.nlHostAddress, self.nlHostInPkts,
                    self.nlHostOutPkts, self.nlHostInOctets, self.nlHostOutOctets,
                    self.nlHostOutMacNonUnicastPkts, self.nlHostCreateTime, self.hlHostControlIndex,
                    self.protocolDirLocalIndex, self.reserved);
  }
};

using NlHostRowList = Batch<NlHostRow>;

// Start of a batch of network conversations.
struct NlMatrixTableKey {
  std::int32_t hlMatrixControlIndex = 0;
  std::uint32_t nlMatrixSDTimeMark = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t reserved_1 = 0;
  ByteList nlMatrixSDSourceAddress;
  ByteList nlMatrixSDDestAddress;
  std::int32_t mode = kBatchMode;
  std::int32_t reserved_2 = 0;
  std::int32_t reserved_3 = 0;
  std::int32_t count = kBatchRows;

  static constexpr auto members(auto& self) {
    return std::tie(self.hlMatrixControlIndex, self.nlMatrixSDTimeMark, self.protocolDirLocalIndex,
                    self.reserved_1, self.nlMatrixSDSourceAddress, self.nlMatrixSDDestAddress,
                    self.mode, self.reserved_2, self.reserved_3, self.count);
  }
};

// RMON-2 nlMatrixSDEntry.
struct NlMatrixRow {
  std::int32_t row_status = 0;
  std::uint32_t nlMatrixSDTimeMark = 0;
  ByteList nlMatrixSDSourceAddress;
  ByteList nlMatrixSDDestAddress;
  std::uint64_t nlMatrixSDPkts = 0;
  std::uint64_t nlMatrixSDOctets = 0;
  std::uint32_t nlMatrixSDCreateTime = 0;
  std::int32_t hlMatrixControlIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t reserved = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.row_status, self.nlMatrixSDTimeMark, self.nlMatrixSDSourceAddress,
                    self.nlMatrixSDDestAddress, self.nlMatrixSDPkts, self.nlMatrixSDOctets,
                    self.nlMatrixSDCreateTime, self.hlMatrixControlIndex,
                    self.protocolDirLocalIndex, self.reserved);
  }
};

using NlMatrixRowList = Batch<NlMatrixRow>;

}  // namespace tally
