// The SMON collections of the agent: vlan (RFC 2613 smonVlanIdStatsTable) and prio
// (smonPrioStatsTable).
//
// Records are packed, little-endian, and hold IEEE doubles. They are sorted by their id as a
// number.
//
//   vlan  36 bytes   0 smonVlanIdStatsId, u32; from 4 on four doubles: smonVlanIdStatsTotalPkts,
//                    smonVlanIdStatsTotalOctets, smonVlanIdStatsNUcastPkts,
//                    smonVlanIdStatsNUcastOctets
//   prio  20 bytes   0 smonPrioStatsId, u32; from 4 on two doubles: smonPrioStatsPkts,
//                    smonPrioStatsOctets
#pragma once

#include "files/collection_ops.h"

namespace tally {

extern const CollectionOps vlan_ops;
extern const CollectionOps prio_ops;

}  // namespace tally
