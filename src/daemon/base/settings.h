// Readers of the appliance's settings (gdbm databases and a text file) for the daemon and the
// tools.
//
// A gdbm reader is refused at once while another process has the database open for writing, and
// keeps writers out while it is open itself. So each database is opened, read and closed in one go.
#pragma once

#include <gdbm.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace tally {

enum class DatabaseState {
  good,
  absent,
  not_a_file,
  held,        // another process has it open for writing
  unreadable,  // rights are missing, or it is damaged
};

// SettingsDatabase is one database, open for reading.
class SettingsDatabase {
 public:
  // Opens it; state() tells whether that worked. Logs nothing.
  explicit SettingsDatabase(const char* path);

  bool opened() const { return file_ != nullptr; }
  DatabaseState state() const { return state_; }
  const std::string& error() const { return error_; }  // why it is unreadable

  // fetch returns the first 4096 bytes of a key's value, or nothing when the key is missing. Keys
  // are stored without a terminating zero.
  std::optional<std::string> fetch(const char* key);

 private:
  struct Close {
    void operator()(GDBM_FILE file) const { gdbm_close(file); }
  };
  std::unique_ptr<std::remove_pointer_t<GDBM_FILE>, Close> file_;
  DatabaseState state_ = DatabaseState::good;
  std::string error_;
};

// The contents of the preferences.
struct Preferences {
  DatabaseState state = DatabaseState::absent;
  std::string error;                   // why they are unreadable
  std::optional<std::string> refresh;  // as stored
  std::int32_t interval = 0;           // seconds, parsed from that; 0 without one
};

// read_preferences reads the database at `path`. Logs nothing.
Preferences read_preferences(const char* path);

// read_interval returns the poll interval in the preferences, in seconds and clamped to 32 bits but
// otherwise unchecked, or 0 when they hold none (logs).
std::int32_t read_interval();

// interval_of returns the number at the start of a text, clamped to 32 bits; 0 when there is none.
std::int32_t interval_of(const std::string& text);

// The supervisor's address and community are texts of up to this many bytes; longer ones count as
// missing.
inline constexpr std::size_t kMaxNmpText = 255;

// Appliances with this target id have the supervisor's interface statistics, all others its
// Ethernet and VLAN statistics.
inline constexpr std::int32_t kInterfaceTarget = 7;

// What the settings say about one supervisor kind.
struct KindSetting {
  std::uint32_t type;
  const char* key;
  bool on_interface_target;          // appliances of kInterfaceTarget have it, or all others
  bool offered = false;              // this appliance has it
  std::optional<std::string> value;  // of an offered kind; nothing when the key is missing

  // A value that begins with "disable", in any case, switches the kind off.
  bool disabled() const;
};

// The supervisor's settings as the daemon uses them.
struct SupervisorSettings {
  DatabaseState state = DatabaseState::absent;  // unless it is good, nothing below is known
  std::string error;                            // why it is unreadable
  std::optional<std::string> address;           // nothing when missing, empty or too long
  std::optional<std::string> community;         // nothing when missing or too long
  std::array<KindSetting, 3> kinds;             // etherstats, supvlan, ifstats
};

// read_supervisor_settings reads the database at `path` for an appliance with this target id. Logs
// nothing.
SupervisorSettings read_supervisor_settings(const char* path, std::optional<std::int32_t> target);

// read_target_id returns the number after "QOR_TARGET_ID=" in the first line of a text file that
// starts with both, or nothing. Lines are split after 255 bytes.
std::optional<std::int32_t> read_target_id(const char* path);

// strip_line_end cuts a text at its first carriage return or line feed.
void strip_line_end(std::string& text);

}  // namespace tally
