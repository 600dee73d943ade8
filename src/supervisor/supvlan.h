// The supvlan kind: rates of the VLANs that the supervisor counts for this appliance (SMON-MIB, RFC
// 2613).
//
// Each of the supervisor's control rows that the appliance owns stands for one VLAN. The records
// are those of the agent's vlan collections (agent/records.h), in ascending order of VLAN ids.
#pragma once

#include <cstdint>

#include "daemon/base/schedule.h"
#include "files/filebuf.h"

namespace tally {

struct SupVlanRecord {
  std::uint32_t flags;          // kRowSeen
  std::uint32_t control_index;  // the key
  std::uint32_t vlan_id;
};

// reset_supvlan empties the list and sets the schedule as it is at start-up.
void reset_supvlan(Schedule& schedule);

// refresh_supvlan_rows brings the list in line with the supervisor's control table and returns how
// many rows there are.
std::uint32_t refresh_supvlan_rows(Schedule& schedule);

// poll_supvlan writes a new sample and the delta file, whatever the times. 1, or 0 (logs).
int poll_supvlan(std::int32_t now, std::int32_t last_poll);

// supvlan_upload puts one record for each VLAN that the supervisor answers for: 1, or 0 (logs).
int supvlan_upload(RecordCache& cache);

// find_supvlan_row returns the record of a control index, or null. It lives until the next refresh.
SupVlanRecord* find_supvlan_row(std::uint32_t control_index);

void clear_supvlan_rows();

}  // namespace tally
