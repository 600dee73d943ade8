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
#include "views/text_columns.h"

namespace tally {

class Course;

struct TableStyle {
  bool wide = false;
  NumberStyle numbers = NumberStyle::exact;  // of the wide table
  bool colour = false;
  std::size_t width = 0;  // characters of a line at most; 0: any
  std::size_t lines = 0;  // at most; 0: any. A row is shown even where there is room for none
  const Names* names = nullptr;  // null: numbers have none
  // Of a screen:
  bool folded = false;             // only the codes of the notes about the file, in one line
  const Course* course = nullptr;  // of the rows, drawn beside their main rate
  Cursor* cursor = nullptr;        // its row stands out, and is on show
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

// The colour of bars.
inline constexpr int kBarColour = 36;

// sum_of returns the main rate of all rows together; where they do not add up, nothing.
std::optional<double> sum_of(const TableView& view);

// table_text returns a headline (what, interval, sample time, number of rows), the notes about the
// file, a line of headings and a line per row, each ended by a newline. Rows with notes have them
// in a last column. Without rows the table has no columns. Lines that are too long are wrapped;
// columns of people's table that do not fit are left out, the last ones first, and named behind the
// table unless its lines are limited. Where the others have no room either, words are shortened.
std::string table_text(const TableView& view, const TableStyle& style);

}  // namespace tally
