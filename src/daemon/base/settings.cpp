#include "daemon/base/settings.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

// Values are short decimal numbers; what is longer is cut here.
constexpr std::size_t kMostDigits = 47;

// No setting is nearly as long. A damaged database may hold anything.
constexpr std::size_t kMostBytes = 4096;

constexpr int kMaxLine = 255;  // bytes of the appliance settings that count as one line

// To open a FIFO would be to wait for ever for somebody to write to it.
bool is_regular_file(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// The nearest number that 32 bits hold stands for those beyond.
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

}  // namespace

SettingsDatabase::SettingsDatabase(const char* path) {
  if (!is_regular_file(path)) return;
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
  const auto refresh = preferences.fetch("refresh");
  if (!refresh) {
    log_warning("Tallyd could not retrieve interval from %s.", kPreferences);
    return 0;
  }
  return interval_of(*refresh);
}

std::int32_t interval_of(const std::string& text) {
  return as_32_bits(std::strtol(text.substr(0, kMostDigits).c_str(), nullptr, 10));
}

bool disables(std::string_view value) {
  constexpr std::string_view kDisable = "disable";
  return value.size() >= kDisable.size() &&
         strncasecmp(value.data(), kDisable.data(), kDisable.size()) == 0;
}

std::optional<std::int32_t> read_target_id(const char* path) {
  struct Close {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
  };
  if (!is_regular_file(path)) return std::nullopt;
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
