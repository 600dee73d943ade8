// The etherstats kind: rates and utilisation of the supervisor's RMON Ethernet statistics rows.
//
// One collection serves the whole appliance. The supervisor keeps its rows for this appliance,
// and each row counts one switch interface. The previous sample is kept in memory, so there is only
// a delta file:
//
//   header       16 bytes (file_format.h): interval, 0, time of this poll, 12
//   records     172 bytes, newest row first
//        0  u32 ifIndex          8  u32 name length           28  f64 utilisation, percent
//        4  u32 etherStatsIndex 12  16 bytes of the name      36  17 f64 rates (kEtherCounterTable)
#pragma once

#include <cstdint>

#include "daemon/base/schedule.h"
#include "supervisor/etherstats_queries.h"

namespace tally {

struct EtherStatsRecord {
  std::uint32_t etherStatsIndex;  // the key
  std::uint32_t ifIndex;
  InterfaceName name;
  InterfaceState state;  // as last seen
  std::uint32_t flags;   // kRowPolled, kRowSeen
  double baseline[kEtherCounters];
};

// reset_etherstats empties the list and sets the schedule as it is at start-up.
void reset_etherstats(Schedule& schedule);

// refresh_etherstats_rows brings the list in line with the supervisor's table and returns how many
// rows there are. A new row gets its baseline, and now becomes the time of the last poll. An
// interface that is down, and has not changed since it was last seen, is not polled.
std::uint32_t refresh_etherstats_rows(Schedule& schedule);

// poll_etherstats writes the delta file under its lock. Returns 1, or 0 when the file cannot be
// written (logs) or the process is about to end; the file then ends where writing stopped. Does
// nothing, and returns 1, when less than a second has passed since the last poll.
int poll_etherstats(std::int32_t now, std::int32_t last_poll);

// find_etherstats_row returns the record of an etherStatsIndex, or null. It lives until the next
// refresh.
EtherStatsRecord* find_etherstats_row(std::uint32_t index);

void clear_etherstats_rows();

// etherstats_duplex returns 1 for a half-duplex interface and 2 for any other: how many directions
// share its speed. `target_id` decides which table is asked.
std::uint32_t etherstats_duplex(std::string_view name, std::uint32_t if_index);

}  // namespace tally
