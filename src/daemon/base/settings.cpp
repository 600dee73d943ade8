#include "daemon/base/settings.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

// Values are short decimal numbers; longer ones are cut.
constexpr std::size_t kMostDigits = 47;

// Far longer than any setting, but a damaged database may hold anything.
constexpr std::size_t kMostBytes = 4096;

constexpr int kMaxLine = 255;  // bytes of the appliance settings that count as one line

// not_a_file returns 0 when opening a path as a file is worth a try, or else an errno value.
// (Opening a FIFO would wait for ever for a writer.)
int not_a_file(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) return errno;
  return S_ISREG(status.st_mode) ? 0 : ENXIO;
}

// Clamps a number to 32 bits.
std::int32_t as_32_bits(long number) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

std::optional<std::int32_t> target_of_line(const char* line) {
  constexpr std::string_view kKey = "QOR_TARGET_ID=";
  if (!std::string_view(line).starts_with(kKey)) return std::nullopt;
  const char* const digits = line + kKey.size();
  char* end = nullptr;
  const long number = std::strtol(digits, &end, 10);
  return end == digits ? std::nullopt : std::optional(as_32_bits(number));
}

// text_of fetches a value of `least` to kMaxNmpText bytes; the text ends at the first zero byte.
std::optional<std::string> text_of(SettingsDatabase& database, const char* key, std::size_t least) {
  const auto value = database.fetch(key);
  if (!value || value->size() < least || value->size() > kMaxNmpText) return std::nullopt;
  return value->substr(0, value->find('\0'));
}

}  // namespace

SettingsDatabase::SettingsDatabase(const char* path) {
  if (const int reason = not_a_file(path)) {
    state_ = reason == ENOENT  ? DatabaseState::absent
             : reason == ENXIO ? DatabaseState::not_a_file
                               : DatabaseState::unreadable;
    error_ = std::strerror(reason);
    return;
  }
  file_.reset(gdbm_open(path, 1, GDBM_READER | GDBM_CLOEXEC, 0666, nullptr));
  if (file_) return;
  const int reason = errno;
  state_ = gdbm_errno == GDBM_CANT_BE_READER ? DatabaseState::held : DatabaseState::unreadable;
  error_ = gdbm_strerror(gdbm_errno);
  if (gdbm_check_syserr(gdbm_errno) != 0) error_.append(": ").append(std::strerror(reason));
}

std::optional<std::string> SettingsDatabase::fetch(const char* key) {
  std::string key_bytes(key);
  const datum value =
      gdbm_fetch(file_.get(), {key_bytes.data(), static_cast<int>(key_bytes.size())});
  if (!value.dptr) return std::nullopt;
  std::string bytes(value.dptr,
                    std::min<std::size_t>(static_cast<unsigned>(value.dsize), kMostBytes));
  std::free(value.dptr);
  return bytes;
}

Preferences read_preferences(const char* path) {
  SettingsDatabase database(path);
  Preferences preferences{database.state(), database.error(), {}, 0};
  if (database.opened()) preferences.refresh = database.fetch("refresh");
  if (preferences.refresh) preferences.interval = interval_of(*preferences.refresh);
  return preferences;
}

std::int32_t read_interval() {
  const Preferences preferences = read_preferences(kPreferences);
  if (preferences.state != DatabaseState::good) {
    log_warning("Tallyd could not open preferences file %s.", kPreferences);
  } else if (!preferences.refresh) {
    log_warning("Tallyd could not retrieve interval from %s.", kPreferences);
  }
  return preferences.interval;
}

std::int32_t interval_of(const std::string& text) {
  return as_32_bits(std::strtol(text.substr(0, kMostDigits).c_str(), nullptr, 10));
}

bool KindSetting::disabled() const {
  constexpr std::string_view kDisable = "disable";
  return !offered || (value && value->size() >= kDisable.size() &&
                      strncasecmp(value->data(), kDisable.data(), kDisable.size()) == 0);
}

SupervisorSettings read_supervisor_settings(const char* path, std::optional<std::int32_t> target) {
  SettingsDatabase database(path);
  SupervisorSettings settings{database.state(),
                              database.error(),
                              {},
                              {},
                              {{{kEtherStats, "NMP_ETHERSTATS", false, false, {}},
                                {kSupVlan, "NMP_VLANSTATS", false, false, {}},
                                {kIfStats, "NMP_IFSTATS", true, false, {}}}}};
  for (KindSetting& kind : settings.kinds) {
    kind.offered = kind.on_interface_target == (target == kInterfaceTarget);
    if (database.opened() && kind.offered) kind.value = database.fetch(kind.key);
  }
  if (!database.opened()) return settings;
  settings.address = text_of(database, "NMP_ADDR", 1);
  settings.community = text_of(database, "NMP_COMMSTR", 0);
  return settings;
}

std::optional<std::int32_t> read_target_id(const char* path) {
  struct Close {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
  };
  if (not_a_file(path) != 0) return std::nullopt;
  const std::unique_ptr<std::FILE, Close> file(std::fopen(path, "re"));
  if (!file) return std::nullopt;
  char line[kMaxLine + 1];
  while (std::fgets(line, sizeof line, file.get())) {
    if (const auto target = target_of_line(line)) return target;
  }
  return std::nullopt;
}

void strip_line_end(std::string& text) {
  const auto end = text.find_first_of("\r\n");
  if (end != std::string::npos) text.resize(end);
}

}  // namespace tally
