#include <fmt/format.h>
#include <rrd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

#include "daemon/base/collection_types.h"
#include "history/history.h"
#include "records/cell_text.h"

namespace tally {
namespace {

// No interval is longer: there is an hour between two polls that nobody waits for, and as much
// again in case one of them failed. Gaps are told by updates of their own.
constexpr int kHeartbeat = 7200;

// How many octets of a data source's name librrd stores.
constexpr std::size_t kLongestName = 19;

struct Archive {
  const char* kind;
  std::int32_t span;  // seconds
  std::int32_t step;  // seconds of one value; 0: the database's own
};
constexpr std::int32_t kHour = 3600;
constexpr std::int32_t kDay = 24 * kHour;
constexpr Archive kArchives[] = {{"AVERAGE", kDay, 0},          {"AVERAGE", 8 * kDay, 600},
                                 {"AVERAGE", 32 * kDay, kHour}, {"AVERAGE", 400 * kDay, kDay},
                                 {"MAX", 32 * kDay, kHour},     {"MAX", 400 * kDay, kDay}};

class RrdHistory final : public History {
 public:
  RrdHistory(std::string directory, std::int32_t step, std::size_t rows)
      : directory_(std::move(directory)), step_(step), rows_(rows) {}

  std::int64_t last_end(const Collection& collection) override;
  std::string keep(const Interval& interval) override;

 private:
  std::string create(const std::string& file, const Interval& interval) const;
  std::string update(const std::string& file, const Interval& interval, const Row& row) const;
  void make_room(const std::string& directory, const std::set<std::string>& files) const;

  std::string directory_;
  std::int32_t step_;
  std::size_t rows_;
};

// last_end is that of the database which was updated last.
std::int64_t RrdHistory::last_end(const Collection& collection) {
  std::int64_t end = 0;
  std::error_code code;
  const std::filesystem::directory_iterator files(history_path(directory_, collection), code);
  for (const auto& file : files) {
    if (file.path().extension() != ".rrd") continue;
    std::int64_t last = -1;
    if (!patiently([&] { return (last = rrd_last_r(file.path().c_str())) >= 0; }))
      rrd_clear_error();
    end = std::max(end, last);
  }
  return end;
}

std::string RrdHistory::create(const std::string& file, const Interval& interval) const {
  std::vector<std::string> words;
  for (const Column& column : interval.layout.columns.subspan(interval.layout.key_columns)) {
    words.push_back(fmt::format("DS:{}:GAUGE:{}:U:U", rrd_source_name(column), kHeartbeat));
  }
  for (const Archive& archive : kArchives) {
    const std::int32_t steps = std::max(archive.step / step_, 1);
    words.push_back(
        fmt::format("RRA:{}:0.5:{}:{}", archive.kind, steps, archive.span / (steps * step_) + 1));
  }
  std::vector<const char*> pointers;
  pointers.reserve(words.size());
  for (const std::string& word : words) pointers.push_back(word.c_str());
  const auto begin = static_cast<time_t>(interval.end - interval.seconds);
  if (rrd_create_r(file.c_str(), static_cast<unsigned long>(step_), begin,
                   static_cast<int>(pointers.size()), pointers.data()) != 0) {
    return rrd_error();
  }
  return {};
}

std::string RrdHistory::update(const std::string& file, const Interval& interval,
                               const Row& row) const {
  std::int64_t last = -1;
  if (!patiently([&] { return (last = rrd_last_r(file.c_str())) >= 0; })) return rrd_error();
  if (last >= interval.end) return {};
  // A value counts since the update before it: so much of it as the interval does not cover is
  // made unknown first.
  std::string gap = fmt::to_string(interval.end - interval.seconds);
  std::string values = fmt::to_string(interval.end);
  for (std::size_t i = interval.layout.key_columns; i < interval.layout.columns.size(); ++i) {
    gap += ":U";
    values += is_rate(row.notes)
                  ? fmt::format(":{}", number_text(value_of(interval.layout, row.record, i),
                                                   NumberStyle::exact))
                  : ":U";
  }
  std::vector<const char*> updates;
  if (last < interval.end - interval.seconds) updates.push_back(gap.c_str());
  updates.push_back(values.c_str());
  const auto count = static_cast<int>(updates.size());
  const bool updated =
      patiently([&] { return rrd_update_r(file.c_str(), nullptr, count, updates.data()) == 0; });
  return updated ? "" : rrd_error();
}

// Removes the databases above the limit, those first that were updated longest ago; never one of
// `files`, which have just been.
void RrdHistory::make_room(const std::string& directory, const std::set<std::string>& files) const {
  std::vector<std::pair<std::filesystem::file_time_type, std::string>> others;
  std::error_code code;
  for (const auto& file : std::filesystem::directory_iterator(directory, code)) {
    if (file.path().extension() != ".rrd" || files.contains(file.path())) continue;
    others.emplace_back(file.last_write_time(code), file.path());
  }
  const std::size_t room = rows_ - files.size();
  if (others.size() <= room) return;
  std::sort(others.begin(), others.end());
  others.resize(others.size() - room);
  for (const auto& [time, file] : others) std::filesystem::remove(file, code);
}

std::string RrdHistory::keep(const Interval& interval) {
  const std::string directory = history_path(directory_, interval.collection);
  if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
    return fmt::format("{}: {}", directory, std::strerror(errno));
  }
  std::set<std::string> files;
  std::size_t failures = 0;
  std::string first;
  for (const Row& row : interval.rows) {
    if (files.size() == rows_) break;
    const std::string file =
        fmt::format("{}/{}.rrd", directory, row_file_name(interval.layout, row.record));
    files.insert(file);
    std::string error;
    std::error_code code;
    if (!std::filesystem::exists(file, code)) error = create(file, interval);
    if (error.empty()) error = update(file, interval, row);
    if (error.empty()) continue;
    if (++failures == 1) first = error;
  }
  make_room(directory, files);
  if (failures == 0) return {};
  return fmt::format("{}: {} of {} rows could not be kept; the first: {}", directory, failures,
                     interval.rows.size(), first);
}

}  // namespace

bool patiently(const std::function<bool()>& call) {
  constexpr int kTries = 100;
  for (int tries = 1; !call(); ++tries) {
    const char* error = rrd_get_error();
    if (tries == kTries || error == nullptr || std::strstr(error, "lock") == nullptr) return false;
    rrd_clear_error();
    std::this_thread::sleep_for(std::chrono::milliseconds{10});
  }
  return true;
}

std::string rrd_error() {
  std::string error = rrd_get_error() != nullptr ? rrd_get_error() : "unknown";
  rrd_clear_error();
  return error;
}

std::string history_path(const std::string& directory, const Collection& collection) {
  return is_agent_type(collection.type)
             ? fmt::format("{}/{}_{}", directory, type_stem(collection.type), collection.index)
             : fmt::format("{}/{}", directory, type_stem(collection.type));
}

std::string rrd_source_name(const Column& column) {
  constexpr std::pair<const char*, const char*> kShorter[] = {
      {"packets", "pkts"},       {"_to_", "_"},          {"_octets", "_oct"},
      {"non_unicast", "nucast"}, {"broadcast", "bcast"}, {"multicast", "mcast"},
      {"unicast", "ucast"},      {"discarded", "disc"},  {"utilisation", "util"},
      {"crc_align", "crc"},      {"error", "err"},
  };
  std::string name = column.metric;
  for (const auto& [word, shorter] : kShorter) {
    const std::size_t at = name.find(word);
    if (at != std::string::npos) name.replace(at, std::strlen(word), shorter);
  }
  return name.substr(0, kLongestName);
}

std::string row_file_name(const RecordLayout& layout, const unsigned char* record) {
  std::string file;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    const ColumnKind kind = layout.columns[i].kind;
    if (!is_visible(kind)) continue;
    if (!file.empty()) file += '_';
    for (const char character : cell_text(layout, record, i, NumberStyle::exact)) {
      const bool plain = std::isalnum(static_cast<unsigned char>(character)) != 0 ||
                         character == '-' || character == '.';
      if (plain) {
        file += character;
      } else if (character == ':' && kind != ColumnKind::name) {
        file += '-';
      } else {
        file += fmt::format("%{:02X}", static_cast<unsigned char>(character));
      }
    }
  }
  return file;
}

std::unique_ptr<History> make_rrd_history(const std::string& directory, std::int32_t step,
                                          std::size_t rows) {
  return std::make_unique<RrdHistory>(directory, step, rows);
}

}  // namespace tally
