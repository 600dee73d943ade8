// The collections of the agent: their records, and the operations of each type.
//
// Records are packed, little-endian, and hold IEEE doubles behind their key.
//
// MAC layer (RFC 2819 hostTable and matrixSDTable, RFC 4502 protocolDistStatsTable):
//
//   host      62 bytes   0 MAC address, 6 bytes; from 6 on seven doubles: hostInPkts, hostOutPkts,
//                        hostInOctets, hostOutOctets, hostOutErrors, hostOutBroadcastPkts,
//                        hostOutMulticastPkts
//   matrix    36 bytes   0 source MAC; 6 destination MAC; from 12 on three doubles: matrixSDPkts,
//                        matrixSDOctets, matrixSDErrors
//   pdist     24 bytes   0 protocol_tag, u32; 4 protocolDirLocalIndex, u32; from 8 on two doubles:
//                        protocolDistStatsPkts, protocolDistStatsOctets
//
// Network layer (RFC 4502 nlHostTable and nlMatrixSDTable). An address is its length, u32, and a
// field of 16 bytes: the address, then zeros. A longer address is cut and its length is then 16:
//
//   nlhost    64 bytes   0 protocolDirLocalIndex, u32; 4 address length; 8 address; from 24 on five
//                        doubles: nlHostInPkts, nlHostOutPkts, nlHostInOctets, nlHostOutOctets,
//                        nlHostOutMacNonUnicastPkts
//   nlmatrix  60 bytes   0 protocolDirLocalIndex, u32; 4 source length; 8 source; 24 destination
//                        length; 28 destination; from 44 on two doubles: nlMatrixSDPkts,
//                        nlMatrixSDOctets
//
// SMON (RFC 2613 smonVlanIdStatsTable and smonPrioStatsTable):
//
//   vlan      36 bytes   0 smonVlanIdStatsId, u32; from 4 on four doubles:
//   smonVlanIdStatsTotalPkts,
//                        smonVlanIdStatsTotalOctets, smonVlanIdStatsNUcastPkts,
//                        smonVlanIdStatsNUcastOctets
//   prio      20 bytes   0 smonPrioStatsId, u32; from 4 on two doubles: smonPrioStatsPkts,
//                        smonPrioStatsOctets
//
// DSMON (RFC 3287 dsmonStatsTable, dsmonPdistStatsTable, dsmonHostTable and dsmonMatrixSDTable), by
// aggregation group. Of the agent's 20 address bytes the first 16 are kept:
//
//   dsstats   36 bytes   0 dsmonAggGroupIndex, u32; from 4 on four doubles: in_pkts, in_octets,
//                        out_pkts, out_octets
//   dspdist   24 bytes   0 dsmonAggGroupIndex; 4 protocolDirLocalIndex; from 8 on two doubles:
//                        dsmonPdistStatsPkts, dsmonPdistStatsOctets
//   dshost    60 bytes   0 dsmonAggGroupIndex; 4 protocolDirLocalIndex; 8 address_word; 12 address;
//                        from 28 on four doubles: in_pkts, in_octets, out_pkts, out_octets
//   dsmatrix  68 bytes   0 dsmonAggGroupIndex; 4 protocolDirLocalIndex; 8 key_word_2; 12 source;
//                        28 key_word_3; 32 destination; 48 key_word_1; from 52 on two doubles:
//                        pkts, octets
//
// The keys of vlan, prio, dsstats and dspdist, and the local index of pdist, are ordered as
// numbers; all others byte by byte as they are stored. A number in those takes part with its
// little-endian bytes, so protocol 256 sorts before protocol 1; files and agent agree on it.
#pragma once

#include "files/collection_ops.h"

namespace tally {

extern const CollectionOps host_ops;
extern const CollectionOps matrix_ops;
extern const CollectionOps pdist_ops;
extern const CollectionOps nlhost_ops;
extern const CollectionOps nlmatrix_ops;
extern const CollectionOps vlan_ops;
extern const CollectionOps prio_ops;
extern const CollectionOps dsstats_ops;
extern const CollectionOps dspdist_ops;
extern const CollectionOps dshost_ops;
extern const CollectionOps dsmatrix_ops;

// The pdist table ends with one row of totals under this key. The compare operation looks only at
// the local index, as an unsigned number, so this row sorts last.
inline constexpr std::uint32_t kPdistTotalsTag = 132;
inline constexpr std::uint32_t kPdistTotalsLocalIndex = 0xffffffff;

}  // namespace tally
