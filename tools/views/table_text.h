// Rows as an aligned table of text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/annotate.h"
#include "records/cell_text.h"
#include "views/row_selection.h"

namespace tally {

struct TableStyle {
  NumberStyle numbers = NumberStyle::exact;
  bool colour = false;
  std::size_t width = 0;  // characters of a line at most; 0: any
};

// TableView is what a table shows of a collection.
struct TableView {
  Collection collection{};
  FileKind kind{};
  FileHeader header{};
  const RecordLayout* layout = nullptr;
  std::uint64_t count = 0;     // rows of the file
  std::uint64_t accepted = 0;  // that the filter let through
  std::vector<Row> rows;       // that are shown
  RowOrder order;
  std::vector<FileNote> notes;
  std::optional<std::int64_t> now;  // seconds since the epoch; then the sample's age is told
};

// table_text returns a headline (what, interval, sample time, number of rows), a line for each note
// about the file, a line of column names and a line per row, each ended by a newline. Rows with
// notes have them in a last column. Without rows the table has no columns.
std::string table_text(const TableView& view, const TableStyle& style);

}  // namespace tally
