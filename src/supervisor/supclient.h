// The supervisor client: who the switch's supervisor is, which of its kinds exist, and the SNMP
// client that asks it.
//
// Everything in this room belongs to the main thread and nothing is locked. One socket is open at a
// time and one request under way.
#pragma once

#include <cstdint>

#include "daemon/base/settings.h"

namespace tally {

// The supervisor's dotted IPv4 address or host name, and the community of every request.
extern char nmp_address[kMaxNmpText + 1];
extern char nmp_community[kMaxNmpText + 1];

// The appliance target id, -1 when unknown.
extern std::int32_t target_id;

// Whether a kind is polled at all. Initially set. The supervisor settings only ever clear a flag;
// the create message sets it, and the destroy message clears it.
extern bool etherstats_enabled;
extern bool supvlan_enabled;
extern bool ifstats_enabled;

// init_supervisor_client reads the target id and the settings (missing ones have defaults; logs)
// and starts the SNMP client. 0, or -1 on failure.
int init_supervisor_client();

// start_snmp_client opens the transport to `nmp_address`. 0, or -1 when the environment cannot be
// set (logs). A supervisor whose name cannot be resolved (logs), and a system without sockets, end
// the process with status -1.
int start_snmp_client();

// stop_snmp_client closes the transport's socket.
void stop_snmp_client();

// reload_supervisor_settings reads the settings again, but not the target id, and starts the client
// anew when the address has changed. 0, or -1 when that fails (logs).
int reload_supervisor_settings();

}  // namespace tally
