// The readers of the appliance's settings: gdbm databases, and a text file. What their values mean
// is told here for the daemon and for its tools alike.
//
// A gdbm reader is refused at once while another process has the database open for writing, and
// keeps writers out while it is open itself. So a database is opened, asked and closed in one go.
#pragma once

#include <gdbm.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace tally {

// SettingsDatabase is one database, open for reading.
class SettingsDatabase {
 public:
  // Opens it; opened() is false when that failed.
  explicit SettingsDatabase(const char* path);

  bool opened() const { return file_ != nullptr; }

  // fetch returns the bytes of a key's value, of a very long one the first 4096, or nothing when
  // there is no such record. The key is stored without a terminating zero.
  std::optional<std::string> fetch(const char* key);

 private:
  struct Close {
    void operator()(GDBM_FILE file) const { gdbm_close(file); }
  };
  std::unique_ptr<std::remove_pointer_t<GDBM_FILE>, Close> file_;
};

// read_interval returns the poll interval of the preferences in seconds, or 0 when it cannot be had
// (logs). Any number that stands there is returned as it is, as far as 32 bits hold it.
std::int32_t read_interval();

// interval_of returns the number that the text of an interval begins with, as far as 32 bits hold
// it; 0 when there is none.
std::int32_t interval_of(const std::string& text);

// The supervisor's address and community are texts of up to this many bytes; longer ones count as
// missing.
inline constexpr std::size_t kMaxNmpText = 255;

// disables tells whether the value of a supervisor kind switches it off: it begins with "disable",
// in any case.
bool disables(std::string_view value);

// read_target_id returns the number behind "QOR_TARGET_ID=" in the first line of a text file that
// begins so, or nothing. Of a line longer than 255 bytes the rest counts as another line.
std::optional<std::int32_t> read_target_id(const char* path);

// strip_line_end cuts a text at its first carriage return or line feed.
void strip_line_end(std::string& text);

}  // namespace tally
