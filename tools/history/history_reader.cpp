#include "history/history_reader.h"

#include <rrd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <memory>

#include "history/history.h"

namespace tally {
namespace {

// Undoes row_file_name. Nothing when the text is none of its file names.
std::optional<std::vector<std::string>> key_of(std::string_view file, const RecordLayout& layout) {
  std::vector<std::string> key;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    const ColumnKind kind = layout.columns[i].kind;
    if (!is_visible(kind)) continue;
    const std::size_t end = std::min(file.find('_'), file.size());
    std::string cell;
    for (std::size_t at = 0; at < end; ++at) {
      unsigned code = 0;
      if (file[at] == '%' && at + 2 < end) {
        std::from_chars(&file[at + 1], &file[at + 3], code, 16);
        cell += static_cast<char>(code);
        at += 2;
      } else {
        cell += file[at] == '-' && kind != ColumnKind::name && end > 1 ? ':' : file[at];
      }
    }
    if (cell.empty()) return std::nullopt;
    key.push_back(std::move(cell));
    file.remove_prefix(std::min(end + 1, file.size()));
  }
  if (!file.empty()) return std::nullopt;
  return key;
}

// What librrd hands over, freed as it wants it.
struct Fetched {
  time_t begin = 0;
  time_t end = 0;
  unsigned long step = 1;
  unsigned long sources = 0;
  char** names = nullptr;
  rrd_value_t* data = nullptr;

  Fetched() = default;
  Fetched(const Fetched&) = delete;
  Fetched& operator=(const Fetched&) = delete;
  ~Fetched() {
    for (unsigned long i = 0; names != nullptr && i < sources; ++i) rrd_freemem(names[i]);
    rrd_freemem(names);
    rrd_freemem(data);
  }
};

}  // namespace

std::vector<KeptRow> kept_rows(const std::string& directory, const Collection& collection,
                               const RecordLayout& layout, std::string& error) {
  std::vector<KeptRow> rows;
  std::error_code code;
  std::filesystem::directory_iterator entry(rrd_directory(directory, collection), code);
  for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
    if (entry->path().extension() != ".rrd") continue;
    auto key = key_of(entry->path().stem().native(), layout);
    if (key) rows.push_back({entry->path(), std::move(*key)});
  }
  if (code && code != std::errc::no_such_file_or_directory) error = code.message();
  std::sort(rows.begin(), rows.end(),
            [](const KeptRow& left, const KeptRow& right) { return left.file < right.file; });
  return rows;
}

std::optional<Series> read_series(const KeptRow& row, const RecordLayout& layout,
                                  std::int64_t since, std::int64_t until, std::string& error) {
  Fetched fetched;
  fetched.begin = since;
  fetched.end = until;
  if (rrd_fetch_r(row.file.c_str(), "AVERAGE", &fetched.begin, &fetched.end, &fetched.step,
                  &fetched.sources, &fetched.names, &fetched.data) != 0) {
    error = rrd_error();
    return std::nullopt;
  }
  Series series{fetched.begin, static_cast<std::int64_t>(fetched.step), {}, {}};
  const auto count = static_cast<std::size_t>(fetched.end - fetched.begin) / fetched.step;
  for (std::size_t column = layout.key_columns; column < layout.columns.size(); ++column) {
    if (!is_visible(layout.columns[column].kind)) continue;
    const std::string name = rrd_source_name(layout.columns[column]);
    for (unsigned long source = 0; source < fetched.sources; ++source) {
      if (name != fetched.names[source]) continue;
      std::vector<double>& values = series.values.emplace_back(count);
      for (std::size_t i = 0; i < count; ++i)
        values[i] = fetched.data[i * fetched.sources + source];
      series.columns.push_back(column);
      break;
    }
  }
  return series;
}

}  // namespace tally
