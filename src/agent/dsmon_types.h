// The DSMON collections (RFC 3287): dsstats (dsmonStatsTable), dspdist (dsmonPdistStatsTable),
// dshost (dsmonHostTable) and dsmatrix (dsmonMatrixSDTable), all by aggregation group.
//
// Records are packed, little-endian, and hold IEEE doubles. Of the agent's 20 address bytes the
// first 16 are kept.
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
#pragma once

#include "files/collection_ops.h"

namespace tally {

extern const CollectionOps dsstats_ops;
extern const CollectionOps dspdist_ops;
extern const CollectionOps dshost_ops;
extern const CollectionOps dsmatrix_ops;

}  // namespace tally
