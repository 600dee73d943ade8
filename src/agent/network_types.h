// The network-layer collections: nlhost (RFC 4502 nlHostTable) and nlmatrix (nlMatrixSDTable).
//
// Records are packed, little-endian, and hold IEEE doubles. An address is its length, u32, and a
// field of 16 bytes: the address, then zeros. A longer address is cut and its length is then 16.
//
//   nlhost    64 bytes   0 protocolDirLocalIndex, u32; 4 address length; 8 address; from 24 on five
//                        doubles: nlHostInPkts, nlHostOutPkts, nlHostInOctets, nlHostOutOctets,
//                        nlHostOutMacNonUnicastPkts
//   nlmatrix  60 bytes   0 protocolDirLocalIndex, u32; 4 source length; 8 source; 24 destination
//                        length; 28 destination; from 44 on two doubles: nlMatrixSDPkts,
//                        nlMatrixSDOctets
//
// Keys are ordered byte by byte as they are stored. A number takes part with its little-endian
// bytes, so protocol 256 sorts before protocol 1; files and agent agree on it.
#pragma once

#include "files/collection_ops.h"

namespace tally {

extern const CollectionOps nlhost_ops;
extern const CollectionOps nlmatrix_ops;

}  // namespace tally
