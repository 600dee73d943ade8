// Rows as an aligned table of text.
//
// There are two tables of the same rows. People get their own words and units, and what a terminal
// has room for: the key, what is measured, the share of the total, notes. The wide one has every
// column of the file under the name of its MIB object, in its own unit, and names beside the
// numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "names/names.h"
#include "records/annotate.h"
#include "records/cell_text.h"
#include "views/row_selection.h"

namespace tally {

struct TableStyle {
  bool wide = false;
  NumberStyle numbers = NumberStyle::exact;  // of the wide table
  bool colour = false;
  std::size_t width = 0;  // characters of a line at most; 0: any
  std::size_t lines = 0;  // at most; 0: any. A row is shown even where there is room for none
  const Names* names = nullptr;  // null: numbers have none
};

// TableView is what a table shows of a collection. A row that sums up the others is not counted.
struct TableView {
  Collection collection{};
  FileKind kind{};
  FileHeader header{};
  const RecordLayout* layout = nullptr;
  std::uint64_t count = 0;     // rows of the file
  std::uint64_t accepted = 0;  // that the filter let through
  std::vector<Row> rows;       // that are shown
  std::vector<double> totals;  // of all rows of the file, by column; empty: there is no total
  RowOrder order;
  std::vector<FileNote> notes;
  std::optional<std::int64_t> now;  // seconds since the epoch; then the sample's age is told
};

// table_text returns a headline (what, interval, sample time, number of rows), the notes about the
// file, a line of headings and a line per row, each ended by a newline. Rows with notes have them
// in a last column. Without rows the table has no columns. Lines that are too long are wrapped;
// columns of people's table that do not fit are left out, the last ones first, and named behind the
// table unless its lines are limited.
std::string table_text(const TableView& view, const TableStyle& style);

}  // namespace tally
