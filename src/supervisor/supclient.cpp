#include "supervisor/supclient.h"

namespace tally {

bool etherstats_enabled = true;
bool supvlan_enabled = true;
bool ifstats_enabled = true;

// This build has no supervisor kind with rows, and so nobody to ask over SNMP.
int init_supervisor_client() {
  return 0;
}
int reload_supervisor_settings() {
  return 0;
}
void stop_snmp_client() {}

}  // namespace tally
