#include "history/history_reader.h"

#include <arpa/inet.h>
#include <netinet/ether.h>
#include <rrd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>

#include "history/history.h"
#include "records/cell_text.h"

namespace tally {
namespace {

constexpr std::size_t kOctets = 16;  // of an address or a name

// put_cell puts a value of the key where cell_text would find this text.
void put_cell(ColumnKind kind, const std::string& text, unsigned char* field) {
  if (kind == ColumnKind::mac) {
    ether_addr mac{};
    if (ether_aton_r(text.c_str(), &mac) != nullptr) std::memcpy(field, &mac, sizeof mac);
    return;
  }
  if (kind != ColumnKind::address && kind != ColumnKind::name) {
    const std::uint32_t number = parse_number(text).value_or(kTotalIndex);
    std::memcpy(field, &number, sizeof number);
    return;
  }
  std::uint32_t length = 0;
  if (kind == ColumnKind::address && inet_pton(AF_INET, text.c_str(), field) == 1) {
    length = sizeof(in_addr);
  } else if (kind == ColumnKind::address && inet_pton(AF_INET6, text.c_str(), field) == 1) {
    length = sizeof(in6_addr);
  } else if (text != "-") {
    const std::string octets = unescaped(text, kind == ColumnKind::name ? "\\x" : "");
    std::copy_n(octets.begin(), std::min(octets.size(), kOctets), field);
    length = static_cast<std::uint32_t>(octets.size());
    // An address whose length was not believed stands with all of its octets.
    if (kind == ColumnKind::address && length == kOctets) ++length;
  }
  std::memcpy(field - sizeof length, &length, sizeof length);
}

// record_of undoes row_file_name. Nothing when the text is none of its file names.
std::vector<unsigned char> record_of(std::string_view file, const RecordLayout& layout) {
  std::vector<unsigned char> record(layout.size);
  std::string_view rest = file;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    const ColumnKind kind = layout.columns[i].kind;
    if (!is_visible(kind)) continue;
    std::string cell(rest.substr(0, rest.find('_')));
    rest.remove_prefix(std::min(cell.size() + 1, rest.size()));
    if (kind != ColumnKind::name && cell.size() > 1)
      std::replace(cell.begin(), cell.end(), '-', ':');
    put_cell(kind, unescaped(cell, "%"), record.data() + layout.offsets[i]);
  }
  if (row_file_name(layout, record.data()) != file) record.clear();
  return record;
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

std::string key_text(const RecordLayout& layout, const KeptRow& row) {
  std::string text;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    if (!is_visible(layout.columns[i].kind)) continue;
    if (!text.empty()) text += ' ';
    text += cell_text(layout, row.record.data(), i, NumberStyle::exact);
  }
  return text;
}

std::string people_key_text(const RecordLayout& layout, const KeptRow& row, const Names* names) {
  std::string text;
  for (const std::size_t i : people_columns(layout)) {
    if (i >= layout.key_columns) break;
    if (!text.empty()) text += ' ';
    text += names != nullptr ? names->label_of(layout, row.record.data(), i, false)
                             : cell_text(layout, row.record.data(), i, NumberStyle::exact);
  }
  return text;
}

std::vector<KeptRow> kept_rows(const std::string& directory, const Collection& collection,
                               const RecordLayout& layout, std::string& error) {
  std::vector<KeptRow> rows;
  std::error_code code;
  std::filesystem::directory_iterator entry(history_path(directory, collection), code);
  for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
    if (entry->path().extension() != ".rrd") continue;
    auto record = record_of(entry->path().stem().native(), layout);
    if (!record.empty()) rows.push_back({entry->path(), std::move(record)});
  }
  if (code && code != std::errc::no_such_file_or_directory) error = code.message();
  std::sort(rows.begin(), rows.end(),
            [](const KeptRow& left, const KeptRow& right) { return left.file < right.file; });
  return rows;
}

std::optional<Series> read_series(const KeptRow& row, const RecordLayout& layout,
                                  std::int64_t since, std::int64_t until, std::string& error) {
  Fetched fetched;
  const auto fetch = [&] {
    fetched.begin = since;  // librrd changes them
    fetched.end = until;
    return rrd_fetch_r(row.file.c_str(), "AVERAGE", &fetched.begin, &fetched.end, &fetched.step,
                       &fetched.sources, &fetched.names, &fetched.data) == 0;
  };
  if (!patiently(fetch)) {
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
