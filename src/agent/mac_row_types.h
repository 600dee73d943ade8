// Wire types of the agent's MAC-layer tables (RFC 2819 hostTable and matrixSDTable, RFC 4502
// protocolDistStatsTable). Rows are read in batches: a key asks for the rows after it, `count` at
// the most. Members stand in wire order.
#pragma once

#include <cstdint>
#include <tuple>

#include "agent/byte_list.h"
#include "agent/wire_rows.h"

namespace tally {

// Start of a batch of hosts: the rows after hostAddress, from the start when it is empty.
struct HostTableKey {
  std::int32_t hostIndex = 0;
  ByteList hostAddress;
  std::int32_t count = kBatchRows;
  std::int32_t mode = kBatchMode;

  static constexpr auto members(auto& self) {
    return std::tie(self.hostIndex, self.hostAddress, self.count, self.mode);
  }
};

// RMON hostEntry.
struct HostRow {
  std::int32_t row_status = 0;
  ByteList hostAddress;
  std::int32_t hostCreationOrder = 0;
  std::int32_t hostIndex = 0;
  std::uint64_t hostInPkts = 0;
  std::uint64_t hostOutPkts = 0;
  std::uint64_t hostInOctets = 0;
  std::uint64_t hostOutOctets = 0;
  std::uint64_t hostOutErrors = 0;
  std::uint64_t hostOutBroadcastPkts = 0;
  std::uint64_t hostOutMulticastPkts = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.row_status, self.hostAddress, self.hostCreationOrder, self.hostIndex,
                    self.hostInPkts, self.hostOutPkts, self.hostInOctets, self.hostOutOctets,
                    self.hostOutErrors, self.hostOutBroadcastPkts, self.hostOutMulticastPkts);
  }
};

using HostRowList = Batch<HostRow>;

// Start of a batch of MAC conversations.
struct MatrixTableKey {
  std::int32_t matrixSDIndex = 0;
  ByteList matrixSDSourceAddress;
  ByteList matrixSDDestAddress;
  std::int32_t count = kBatchRows;
  std::int32_t mode = kBatchMode;
  std::int32_t direction = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.matrixSDIndex, self.matrixSDSourceAddress, self.matrixSDDestAddress,
                    self.count, self.mode, self.direction);
  }
};

// RMON matrixSDEntry.
struct MatrixRow {
  std::int32_t row_status = 0;
  ByteList matrixSDSourceAddress;
  ByteList matrixSDDestAddress;
  std::int32_t matrixSDIndex = 0;
  std::uint64_t matrixSDPkts = 0;
  std::uint64_t matrixSDOctets = 0;
  std::uint64_t matrixSDErrors = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.row_status, self.matrixSDSourceAddress, self.matrixSDDestAddress,
                    self.matrixSDIndex, self.matrixSDPkts, self.matrixSDOctets,
                    self.matrixSDErrors);
  }
};

using MatrixRowList = Batch<MatrixRow>;

// Start of a batch of protocols; mode and count stand in the other order here.
struct PdistTableKey {
  std::int32_t protocolDistControlIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t mode = kBatchMode;
  std::int32_t count = kBatchRows;

  static constexpr auto members(auto& self) {
    return std::tie(self.protocolDistControlIndex, self.protocolDirLocalIndex, self.mode,
                    self.count);
  }
};

// RMON-2 protocolDistStatsEntry.
struct PdistRow {
  std::int32_t row_status = 0;
  std::int32_t protocolDistControlIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::uint64_t protocolDistStatsPkts = 0;
  std::uint64_t protocolDistStatsOctets = 0;
  std::uint32_t protocol_tag = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.row_status, self.protocolDistControlIndex, self.protocolDirLocalIndex,
                    self.protocolDistStatsPkts, self.protocolDistStatsOctets, self.protocol_tag);
  }
};

using PdistRowList = Batch<PdistRow>;

// Everything that the source of a protocol distribution has seen.
struct PdistTotalsReply {
  std::int32_t status = 0;
  std::uint64_t total_pkts = 0;
  std::uint64_t total_octets = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.total_pkts, self.total_octets);
  }
};

}  // namespace tally
