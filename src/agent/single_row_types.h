// Wire types of the agent's SMON and DSMON tables (RFC 2613, RFC 3287), which are read one row a
// call. A reply starts with its status: 0 when a row follows. Members stand in wire order.
#pragma once

#include <cstdint>
#include <tuple>

#include "agent/byte_list.h"
#include "agent/control_types.h"

namespace tally {

// SMON smonVlanIdStatsEntry.
struct VlanRowReply {
  std::int32_t status = 0;
  std::int32_t smonVlanIdStatsId = 0;
  std::uint64_t smonVlanIdStatsTotalPkts = 0;
  std::uint64_t smonVlanIdStatsTotalOctets = 0;
  std::uint64_t smonVlanIdStatsNUcastPkts = 0;
  std::uint64_t smonVlanIdStatsNUcastOctets = 0;
  std::uint32_t smonVlanIdStatsCreateTime = 0;
  std::int32_t control_index = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.smonVlanIdStatsId, self.smonVlanIdStatsTotalPkts,
                    self.smonVlanIdStatsTotalOctets, self.smonVlanIdStatsNUcastPkts,
                    self.smonVlanIdStatsNUcastOctets, self.smonVlanIdStatsCreateTime,
                    self.control_index);
  }
};

// SMON smonPrioStatsEntry.
struct PrioRowReply {
  std::int32_t status = 0;
  std::int32_t smonPrioStatsId = 0;
  std::uint64_t smonPrioStatsPkts = 0;
  std::uint64_t smonPrioStatsOctets = 0;
  std::int32_t control_index = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.smonPrioStatsId, self.smonPrioStatsPkts,
                    self.smonPrioStatsOctets, self.control_index);
  }
};

// DSMON dsmonStatsEntry.
struct DsStatsRowReply {
  std::int32_t status = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::uint32_t dsmonStatsControlIndex = 0;
  std::uint64_t in_pkts = 0;
  std::uint64_t in_octets = 0;
  std::uint64_t out_pkts = 0;
  std::uint64_t out_octets = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.dsmonAggGroupIndex, self.dsmonStatsControlIndex, self.in_pkts,
                    self.in_octets, self.out_pkts, self.out_octets);
  }
};

// The longs of the DSMON keys take 4 bytes on the wire on every platform.
struct DsPdistKey {
  std::int32_t dsmonPdistCtlIndex = 0;
  std::uint32_t dsmonPdistTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::int32_t request = kNextRow;

  static constexpr auto members(auto& self) {
    return std::tie(self.dsmonPdistCtlIndex, self.dsmonPdistTimeMark, self.dsmonAggGroupIndex,
                    self.protocolDirLocalIndex, self.request);
  }
};

// DSMON dsmonPdistStatsEntry.
struct DsPdistRowReply {
  std::int32_t status = 0;
  std::uint32_t dsmonPdistCtlIndex = 0;
  std::uint32_t dsmonPdistTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  std::uint64_t dsmonPdistStatsPkts = 0;
  std::uint64_t dsmonPdistStatsOctets = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.dsmonPdistCtlIndex, self.dsmonPdistTimeMark,
                    self.dsmonAggGroupIndex, self.protocolDirLocalIndex, self.dsmonPdistStatsPkts,
                    self.dsmonPdistStatsOctets);
  }
};

struct DsHostKey {
  std::int32_t dsmonHostCtlIndex = 0;
  std::uint32_t dsmonHostTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  ByteVector20 dsmonHostAddress{};
  std::int32_t address_word = 0;
  std::int32_t request = kNextRow;

  static constexpr auto members(auto& self) {
    return std::tie(self.dsmonHostCtlIndex, self.dsmonHostTimeMark, self.dsmonAggGroupIndex,
                    self.protocolDirLocalIndex, self.dsmonHostAddress, self.address_word,
                    self.request);
  }
};

// DSMON dsmonHostEntry.
struct DsHostRowReply {
  std::int32_t status = 0;
  std::int32_t dsmonHostCtlIndex = 0;
  std::uint32_t dsmonHostTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  ByteVector20 dsmonHostAddress{};
  std::int32_t address_word = 0;
  std::uint64_t in_pkts = 0;
  std::uint64_t in_octets = 0;
  std::uint64_t out_pkts = 0;
  std::uint64_t out_octets = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.dsmonHostCtlIndex, self.dsmonHostTimeMark,
                    self.dsmonAggGroupIndex, self.protocolDirLocalIndex, self.dsmonHostAddress,
                    self.address_word, self.in_pkts, self.in_octets, self.out_pkts,
                    self.out_octets);
  }
};

struct DsMatrixKey {
  std::int32_t dsmonMatrixCtlIndex = 0;
  std::uint32_t dsmonMatrixTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  ByteVector20 source_address{};
  ByteVector20 dest_address{};
  std::int32_t key_word_1 = 0;
  std::int32_t key_word_2 = 0;
  std::int32_t key_word_3 = 0;
  std::int32_t request = kNextRow;

  static constexpr auto members(auto& self) {
    return std::tie(self.dsmonMatrixCtlIndex, self.dsmonMatrixTimeMark, self.dsmonAggGroupIndex,
                    self.protocolDirLocalIndex, self.source_address, self.dest_address,
                    self.key_word_1, self.key_word_2, self.key_word_3, self.request);
  }
};

// DSMON dsmonMatrixSDEntry.
struct DsMatrixRowReply {
  std::int32_t status = 0;
  std::int32_t dsmonMatrixCtlIndex = 0;
  std::uint32_t dsmonMatrixTimeMark = 0;
  std::uint32_t dsmonAggGroupIndex = 0;
  std::int32_t protocolDirLocalIndex = 0;
  ByteVector20 source_address{};
  ByteVector20 dest_address{};
  std::int32_t key_word_1 = 0;
  std::int32_t key_word_2 = 0;
  std::int32_t key_word_3 = 0;
  std::uint64_t pkts = 0;
  std::uint64_t octets = 0;

  static constexpr auto members(auto& self) {
    return std::tie(self.status, self.dsmonMatrixCtlIndex, self.dsmonMatrixTimeMark,
                    self.dsmonAggGroupIndex, self.protocolDirLocalIndex, self.source_address,
                    self.dest_address, self.key_word_1, self.key_word_2, self.key_word_3, self.pkts,
                    self.octets);
  }
};

}  // namespace tally
