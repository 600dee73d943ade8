// The supervisor client: which supervisor kinds exist, and the SNMP client that asks for them.
//
// Everything here belongs to the main thread.
#pragma once

namespace tally {

// Whether a kind is polled at all. Initially set; the supervisor settings clear a flag, the create
// message sets it and the destroy message clears it.
extern bool etherstats_enabled;
extern bool supvlan_enabled;
extern bool ifstats_enabled;

// init_supervisor_client reads the settings and starts the SNMP client. 0, or -1 on failure.
int init_supervisor_client();

// reload_supervisor_settings reads the settings again. 0, or -1 when the client, restarted because
// the supervisor's address changed, cannot be started.
int reload_supervisor_settings();

// stop_snmp_client closes the client's socket.
void stop_snmp_client();

}  // namespace tally
