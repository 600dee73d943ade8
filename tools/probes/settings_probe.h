// What the settings say, and why they cannot be read, for people. Reads; logs nothing.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace tally {

enum class DatabaseState {
  good,
  absent,
  held,        // another process has it open for writing
  unreadable,  // wrong rights, or damaged
};

struct Preferences {
  DatabaseState state = DatabaseState::absent;
  std::string error;                   // why it is unreadable
  std::optional<std::string> refresh;  // as it stands there
  std::int32_t interval = 0;           // that the daemon makes of it
};

Preferences read_preferences(const std::string& path);

// planned_interval returns the interval that the preferences ask for; nothing when they cannot be
// read now although they are there. A message may have changed the daemon's since.
std::optional<std::int32_t> planned_interval(const std::string& preferences);

struct KindSetting {
  std::uint32_t type;
  bool enabled;  // after a start of the daemon; messages change it
  std::string why;
};

struct SupervisorSettings {
  DatabaseState state = DatabaseState::absent;
  std::string error;
  std::string address;    // with the default where there is none
  std::string community;  // likewise
  bool default_address = true;
  bool default_community = true;
  std::optional<int> target_id;
  std::array<KindSetting, 3> kinds;
};

SupervisorSettings read_supervisor_settings(const std::string& database,
                                            const std::string& appliance_settings);

}  // namespace tally
