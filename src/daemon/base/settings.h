// The readers of the appliance's settings: gdbm databases, and a text file. What their values mean
// is told here for the daemon and for its tools alike.
//
// A gdbm reader is refused at once while another process has the database open for writing, and
// keeps writers out while it is open itself. So a database is opened, asked and closed in one go.
#pragma once

#include <gdbm.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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

  // fetch returns the bytes of a key's value, of a very long one the first 4096, or nothing when
  // there is no such record. The key is stored without a terminating zero.
  std::optional<std::string> fetch(const char* key);

 private:
  struct Close {
    void operator()(GDBM_FILE file) const { gdbm_close(file); }
  };
  std::unique_ptr<std::remove_pointer_t<GDBM_FILE>, Close> file_;
  DatabaseState state_ = DatabaseState::good;
  std::string error_;
};

// What the preferences say.
struct Preferences {
  DatabaseState state = DatabaseState::absent;
  std::string error;                   // why they are unreadable
  std::optional<std::string> refresh;  // as it stands there
  std::int32_t interval = 0;           // seconds, made of that; 0 when it cannot be had
};

// read_preferences reads the database at `path`. Logs nothing.
Preferences read_preferences(const char* path);

// read_interval returns the poll interval of the preferences in seconds, or 0 when it cannot be had
// (logs). Any number that stands there is returned as it is, as far as 32 bits hold it.
std::int32_t read_interval();

// interval_of returns the number that the text of an interval begins with, as far as 32 bits hold
// it; 0 when there is none.
std::int32_t interval_of(const std::string& text);

// The supervisor's address and community are texts of up to this many bytes; longer ones count as
// missing.
inline constexpr std::size_t kMaxNmpText = 255;

// An appliance of this target id has interface statistics of the supervisor, every other one
// Ethernet and VLAN statistics.
inline constexpr std::int32_t kInterfaceTarget = 7;

// What the settings say of one supervisor kind.
struct KindSetting {
  std::uint32_t type;
  const char* key;
  bool on_interface_target;          // appliances of kInterfaceTarget have it, or all others
  bool offered = false;              // this appliance has it
  std::optional<std::string> value;  // of an offered kind; nothing when the key is missing

  // A value that begins with "disable", in any case, switches the kind off.
  bool disabled() const;
};

// The supervisor's settings as the daemon takes them.
struct SupervisorSettings {
  DatabaseState state = DatabaseState::absent;  // unless it is good, nothing below is known
  std::string error;                            // why it is unreadable
  std::optional<std::string> address;           // nothing when missing, empty or too long
  std::optional<std::string> community;         // nothing when missing or too long
  std::array<KindSetting, 3> kinds;             // etherstats, supvlan, ifstats
};

// read_supervisor_settings reads the database at `path` for an appliance of this target id. Logs
// nothing.
SupervisorSettings read_supervisor_settings(const char* path, std::optional<std::int32_t> target);

// read_target_id returns the number behind "QOR_TARGET_ID=" in the first line of a text file that
// begins so, or nothing. Of a line longer than 255 bytes the rest counts as another line.
std::optional<std::int32_t> read_target_id(const char* path);

// strip_line_end cuts a text at its first carriage return or line feed.
void strip_line_end(std::string& text);

}  // namespace tally
