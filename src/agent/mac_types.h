// The MAC-layer collections: host (RFC 2819 hostTable), matrix (matrixSDTable) and pdist (RFC 4502
// protocolDistStatsTable).
//
// Records are packed, little-endian, and hold IEEE doubles:
//
//   host    62 bytes   0 MAC address, 6 bytes; from 6 on seven doubles: hostInPkts, hostOutPkts,
//                      hostInOctets, hostOutOctets, hostOutErrors, hostOutBroadcastPkts,
//                      hostOutMulticastPkts
//   matrix  36 bytes   0 source MAC; 6 destination MAC; from 12 on three doubles: matrixSDPkts,
//                      matrixSDOctets, matrixSDErrors
//   pdist   24 bytes   0 protocol_tag, u32; 4 protocolDirLocalIndex, u32; from 8 on two doubles:
//                      protocolDistStatsPkts, protocolDistStatsOctets
#pragma once

#include "files/collection_ops.h"

namespace tally {

extern const CollectionOps host_ops;
extern const CollectionOps matrix_ops;
extern const CollectionOps pdist_ops;

// The pdist table ends with one row of totals under this key. The compare operation looks only at
// the local index, as an unsigned number, so this row sorts last.
inline constexpr std::uint32_t kPdistTotalsTag = 132;
inline constexpr std::uint32_t kPdistTotalsLocalIndex = 0xffffffff;

}  // namespace tally
