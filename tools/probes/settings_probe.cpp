#include "probes/settings_probe.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/base/schedule.h"
#include "daemon/base/settings.h"
#include "records/cell_text.h"

namespace tally {
namespace {

DatabaseState state_of(const SettingsDatabase& database, const std::string& path,
                       std::string& error) {
  if (database.opened()) return DatabaseState::good;
  const int code = gdbm_errno;
  const int system_error = errno;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 && errno == ENOENT) return DatabaseState::absent;
  if (!S_ISREG(status.st_mode)) {
    error = "it is not a regular file";
  } else if (code == GDBM_CANT_BE_READER) {
    return DatabaseState::held;
  } else {
    error = gdbm_strerror(code);
    if (gdbm_check_syserr(code) != 0) error += fmt::format(": {}", std::strerror(system_error));
  }
  return DatabaseState::unreadable;
}

struct Kind {
  std::uint32_t type;
  const char* key;
  bool on_target_7;
};

constexpr Kind kKinds[] = {{kEtherStats, "NMP_ETHERSTATS", false},
                           {kSupVlan, "NMP_VLANSTATS", false},
                           {kIfStats, "NMP_IFSTATS", true}};

KindSetting setting_of(const Kind& kind, SettingsDatabase& database, std::optional<int> target) {
  if (!database.opened()) return {kind.type, true, "there is no database that can be read"};
  if ((target == 7) != kind.on_target_7) {
    return {kind.type, false,
            fmt::format("an appliance of target id {} has {}",
                        target ? fmt::to_string(*target) : "unknown",
                        kind.on_target_7 ? "etherstats and supvlan" : "ifstats only")};
  }
  const auto value = database.fetch(kind.key);
  if (!value) return {kind.type, true, fmt::format("{} is not set", kind.key)};
  return {kind.type, !disables(*value), fmt::format("{} is {}", kind.key, printable(*value))};
}

}  // namespace

Preferences read_preferences(const std::string& path) {
  Preferences preferences;
  preferences.interval = kDefaultInterval;
  SettingsDatabase database(path.c_str());
  preferences.state = state_of(database, path, preferences.error);
  if (preferences.state != DatabaseState::good) return preferences;
  preferences.refresh = database.fetch("refresh");
  if (!preferences.refresh) return preferences;
  const std::int32_t interval = interval_of(*preferences.refresh);
  if (interval != 0) preferences.interval = interval;
  return preferences;
}

std::optional<std::int32_t> planned_interval(const std::string& preferences) {
  const Preferences read = read_preferences(preferences);
  if (read.state == DatabaseState::held || read.state == DatabaseState::unreadable) {
    return std::nullopt;
  }
  return read.interval;
}

SupervisorSettings read_supervisor_settings(const std::string& path,
                                            const std::string& appliance_settings) {
  SupervisorSettings settings;
  settings.address = kDefaultNmpAddress;
  settings.community = kDefaultNmpCommunity;
  settings.target_id = read_target_id(appliance_settings.c_str());
  SettingsDatabase database(path.c_str());
  settings.state = state_of(database, path, settings.error);
  if (settings.state == DatabaseState::good) {
    if (auto address = database.fetch("NMP_ADDR");
        address && !address->empty() && address->size() <= kMaxNmpText) {
      settings.address =
          address->substr(0, address->find('\0'));  // up to a zero byte, as the daemon reads it
      settings.default_address = false;
    }
    if (auto community = database.fetch("NMP_COMMSTR");
        community && community->size() <= kMaxNmpText) {
      settings.community = community->substr(0, community->find('\0'));
      settings.default_community = false;
    }
  }
  std::transform(std::begin(kKinds), std::end(kKinds), settings.kinds.begin(),
                 [&](const Kind& kind) { return setting_of(kind, database, settings.target_id); });
  return settings;
}

}  // namespace tally
