#include "supervisor/supclient.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <tuple>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/base/settings.h"
#include "snmp/snmpio.h"

namespace tally {

char nmp_address[kMaxNmpText + 1] = {};
char nmp_community[kMaxNmpText + 1] = {};
std::int32_t target_id = -1;
bool etherstats_enabled = true;
bool supvlan_enabled = true;
bool ifstats_enabled = true;

namespace {

constexpr char kProgramName[] = "tallyd";  // for the transport
constexpr unsigned kResponseTimeout = 2;   // seconds

using Text = char[kMaxNmpText + 1];
static_assert(sizeof kDefaultNmpAddress <= sizeof(Text) &&
                  sizeof kDefaultNmpCommunity <= sizeof(Text),
              "TALLYD_NMP_ADDRESS or TALLYD_NMP_COMMUNITY is too long");

void set_text(Text& text, std::string_view value) {
  std::memcpy(text, value.data(), value.size());
  text[value.size()] = '\0';
}

void read_settings() {
  const SupervisorSettings settings = read_supervisor_settings(kNmpSettings, target_id);
  set_text(nmp_address, settings.address.value_or(kDefaultNmpAddress));
  set_text(nmp_community, settings.community.value_or(kDefaultNmpCommunity));
  if (settings.state != DatabaseState::good) {
    log_warning("Tallyd error reading NMP parameters, using defaults");
    return;
  }
  if (!settings.address) log_warning("Tallyd error reading NMP address, using default");
  if (!settings.community) log_warning("Tallyd error reading NMP community, using default");
  constexpr struct {
    bool* enabled;
    const char* missing_text;
  } kKinds[] = {
      {&etherstats_enabled, "Tallyd error reading etherstats setting, using default"},
      {&supvlan_enabled, "Tallyd error reading vlanstats setting, using default"},
      {&ifstats_enabled, "Tallyd error reading ifstats setting, using default"},
  };
  static_assert(std::size(kKinds) == std::tuple_size_v<decltype(settings.kinds)>);
  for (std::size_t i = 0; i < std::size(kKinds); ++i) {
    const KindSetting& kind = settings.kinds[i];
    if (kind.offered && !kind.value) log_debug("%s", kKinds[i].missing_text);
    if (kind.disabled()) *kKinds[i].enabled = false;  // no value ever sets it
  }
  log_debug("%s", etherstats_enabled ? "etherstats enabled" : "etherstats disabled");
  log_debug("%s", supvlan_enabled ? "supvlanstats enabled" : "supvlanstats disabled");
  log_debug("%s", ifstats_enabled ? "ifstats enabled" : "ifstats disabled");
}

// The transport ends the process if the host is unknown, and its message is not logged.
void warn_of_unknown_host() {
  if (inet_addr(nmp_address) == INADDR_NONE && !gethostbyname(nmp_address)) {
    log_warning("NMP address %s is unknown, terminating tallyd.", nmp_address);
  }
}

}  // namespace

int init_supervisor_client() {
  target_id = read_target_id(kApplianceSettings).value_or(-1);
  read_settings();
  return start_snmp_client();
}

int start_snmp_client() {
  snmpio::seconds = kResponseTimeout;
  if (setenv("ZN_SNMP_TEST_PORT", kNmpPort, 1) != 0) {
    log_debug("Error setting up ZN environment variable.");
    return -1;
  }
  warn_of_unknown_host();
  InitializeIO(kProgramName, nmp_address);
  return 0;
}

void stop_snmp_client() {
  CloseUp();
}

int reload_supervisor_settings() {
  Text before;
  std::memcpy(before, nmp_address, sizeof before);
  read_settings();
  if (std::strcmp(before, nmp_address) == 0) return 0;
  stop_snmp_client();
  return start_snmp_client();
}

}  // namespace tally
