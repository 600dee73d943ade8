// Collection files, as tallyctl reads, compares and shows them.
//
// Any bytes are a delta file of at most one type. An accepted file has the size that its rows
// explain, each view shows every row once and nothing that a terminal would obey, and JSON is JSON.
// That holds with any samples: its own rows, its own without the first ones, and rows cut out at a
// wrong place. The header's up-time, which delta files do not use, says which samples and which
// view an input is looked at with: all of them would take a hundred times as long.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "daemon/base/collection_types.h"
#include "history/history.h"
#include "property.h"
#include "views/row_export.h"
#include "views/view.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

OpenFile open_bytes(std::span<const unsigned char> bytes, std::uint32_t type, FileKind kind) {
  OpenFile file;
  file.bytes = FileBytes(Bytes(bytes.begin(), bytes.end()));
  judge(file, type, kind);
  return file;
}

bool is_plain(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); });
}

void check_table(const OpenFiles& files, const AnnotateOptions& options, std::size_t column,
                 const TableStyle& style) {
  const RecordLayout& layout = *files.main.layout;
  const std::uint64_t count = files.main.count();
  const RowOrder order{column, column % 2 == 1, 0};
  const LoadedView loaded = load_view(files, RowFilter(layout, {}), order, &options);
  demand(loaded.view.rows.size() == count, "sorting keeps every row and adds none");
  const RowOrder few{column, false, 2};
  const std::size_t kept = load_view(files, RowFilter(layout, {}), few, nullptr).view.rows.size();
  demand(kept <= 3, "no more than asked for and the totals");
  const std::string text = table_text(loaded.view, style);
  const auto lines = static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
  demand(lines >= 1 + loaded.view.notes.size() + (count == 0 ? 0 : count + 1),
         "one line per row and note");
  demand(is_plain(text), "plain text");
  for (const Row& row : loaded.view.rows) {
    demand(row_file_name(layout, row.record).find('/') == std::string::npos, "no path");
  }
}

void check_export(const OpenFiles& files, const AnnotateOptions& options, bool json) {
  const RecordLayout& layout = *files.main.layout;
  std::string text = json ? json_head(files, options) : csv_heading(layout, false);
  const char* between = "";
  const auto notes = read_rows(files, &options, [&](const unsigned char* record, RowNotes of_row) {
    if (json) text += std::exchange(between, ",");
    (json ? append_json_row : append_csv_row)(text, layout, record, of_row, nullptr);
    return true;
  });
  if (json) text += json_tail(notes);
  demand(is_plain(text), "plain export");
  if (!json) return;
  demand(nlohmann::json::parse(text)["rows"].size() == files.main.count(), "JSON rows");
}

// A view is mostly a table by one of the columns, and sometimes an export, which takes ten times as
// long.
void check_view(const OpenFiles& files, std::uint32_t chosen) {
  const AnnotateOptions options{60, 1e6};
  if (chosen % 32 < 2) return check_export(files, options, chosen % 32 == 0);
  const TableStyle styles[] = {TableStyle{}, TableStyle{.wide = true}, TableStyle{.width = 80}};
  check_table(files, options, chosen % files.main.layout->columns.size(), styles[chosen / 32 % 3]);
}

// sample_of makes a sample of the octets of `bytes` from `offset` on.
OpenFile sample_of(std::span<const unsigned char> bytes, std::size_t offset, std::uint32_t type,
                   FileKind kind, std::int32_t time) {
  const RecordLayout* layout = record_layout(type, kind);
  const FileHeader header{0, static_cast<std::uint32_t>(bytes[0]), time, type};
  Bytes sample(sizeof header);
  std::memcpy(sample.data(), &header, sizeof header);
  const auto rows = bytes.subspan(std::min(offset, bytes.size()));
  const std::size_t octets = layout == nullptr ? 0 : rows.size() / layout->size * layout->size;
  sample.insert(sample.end(), rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(octets));
  return open_bytes(sample, type, kind);
}

void check_with_samples(std::span<const unsigned char> bytes, std::uint32_t type) {
  const std::size_t size = record_layout(type)->size;
  const std::size_t starts[] = {sizeof(FileHeader), sizeof(FileHeader) + size, 3};
  OpenFiles files;
  files.collection = {type, 1};
  files.kind = FileKind::delta;
  files.main = open_bytes(bytes, type, FileKind::delta);
  const FileHeader& main = files.main.header;
  const std::uint32_t chosen = main.up_time;
  match_samples(files, sample_of(bytes, starts[chosen % 3], type, FileKind::last, main.sample_time),
                sample_of(bytes, starts[chosen / 3 % 3], type, FileKind::prev,
                          seconds_between(main.interval, main.sample_time)));
  check_view(files, chosen / 9);
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const std::span<const unsigned char> bytes(data, size);
  int accepted = 0;
  for (std::uint32_t type = 0; type <= kTypeSlots; ++type) {
    const OpenFile file = open_bytes(bytes, type, FileKind::delta);
    if (!file.good()) {
      demand(!file.remark.empty(), "every refusal has its reason");
      continue;
    }
    demand(++accepted == 1, "a file of one type only");
    demand(sizeof(FileHeader) + file.count() * file.layout->size == size, "rows explain the size");
    check_with_samples(bytes, type);
  }
  return 0;
}
