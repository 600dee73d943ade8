#include "daemon/settings.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "daemon/log.h"
#include "daemon/paths.h"

namespace tally {
namespace {

// Values are short decimal numbers; what is longer is cut here.
constexpr std::size_t kMostDigits = 47;

// No setting is nearly as long. A damaged database may hold anything.
constexpr std::size_t kMostBytes = 4096;

}  // namespace

SettingsDatabase::SettingsDatabase(const char* path) {
  // gdbm would wait for ever for somebody to write to a FIFO.
  struct stat status;
  if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return;
  file_.reset(gdbm_open(path, 1, GDBM_READER | GDBM_CLOEXEC, 0666, nullptr));
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

std::int32_t read_interval() {
  SettingsDatabase preferences(kPreferences);
  if (!preferences.opened()) {
    log_warning("Tallyd could not open preferences file %s.", kPreferences);
    return 0;
  }
  auto refresh = preferences.fetch("refresh");
  if (!refresh) {
    log_warning("Tallyd could not retrieve interval from %s.", kPreferences);
    return 0;
  }
  if (refresh->size() > kMostDigits) refresh->resize(kMostDigits);
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<long>(std::strtol(refresh->c_str(), nullptr, 10), Limits::min(), Limits::max()));
}

void strip_line_end(std::string& text) {
  const auto end = text.find_first_of("\r\n");
  if (end != std::string::npos) text.resize(end);
}

}  // namespace tally
