// The ifstats kind: rates and utilisation of the switch's interfaces that are up (IF-MIB, RFC
// 2863).
//
// Rows stay in the order in which they were found: an interface that comes up later goes to the
// end. Records of all three files are 120 bytes:
//
//     0  u32 ifIndex          24  f64 last, prev: ifSpeed; delta: input utilisation, percent
//     4  u32 name length      32  f64 last, prev: 0; delta: output utilisation, percent
//     8  16 bytes of the name 40  10 f64 counters or rates: octets in and out, unicast packets in
//                                 and out, other packets in and out, discards, errors
#pragma once

#include <cstdint>

#include "daemon/base/schedule.h"
#include "files/filebuf.h"
#include "supervisor/interfaces.h"

namespace tally {

struct IfStatsRecord {
  std::uint32_t flags;    // kRowSeen
  std::uint32_t ifIndex;  // the key
  InterfaceName name;
};

// reset_ifstats empties the list and sets the times as they are at start-up. The viewed mark
// stays, since pages may be open.
void reset_ifstats(Schedule& schedule);

// refresh_ifstats_rows brings the list in line with the supervisor's interfaces and returns how
// many are up.
std::uint32_t refresh_ifstats_rows(Schedule& schedule);

// poll_ifstats writes a new sample and the delta file, whatever the times. 1, or 0 (logs).
int poll_ifstats(std::int32_t now, std::int32_t last_poll);

// ifstats_upload puts one record for each interface that the supervisor answers for: 1, or 0
// (logs). If the supervisor refuses the 64-bit counters but has the 32-bit ones, it is asked for
// those from then on, until the process ends.
int ifstats_upload(RecordCache& cache);

// ifacecalc_delta makes the delta record of two sample records (at any alignment). An interval of 0
// is taken as 1 (logs). Returns 1 when any rate is not 0, 0 when all are, -1 on a null argument
// (logs).
int ifacecalc_delta(const unsigned char* prev, const unsigned char* last, unsigned char* out,
                    std::uint32_t interval);

// find_ifstats_row returns the record of an ifIndex, or null. It lives until the next refresh.
IfStatsRecord* find_ifstats_row(std::uint32_t if_index);

void clear_ifstats_rows();

}  // namespace tally
