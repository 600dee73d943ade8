// A delta file as an aligned table of text.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cell_text.h"
#include "delta_reader.h"

namespace tally {

struct TableStyle {
  NumberStyle numbers = NumberStyle::exact;
  std::size_t top = 0;                     // rows to show at most; 0: all
  std::optional<std::size_t> sort_column;  // nothing: the order of the file
  bool colour = false;
  std::size_t width = 0;  // characters of a line at most; 0: any
};

// ordered_rows returns the numbers of the rows to show: the first `top` after sorting (rates from
// high to low, keys from low to high), ties in the order of the file. A totals row is not counted
// and comes last.
std::vector<std::size_t> ordered_rows(const DeltaTable& table, const TableStyle& style);

// table_text returns a headline (what, interval, sample time, number of rows), a line of column
// names and a line per row, each ended by a newline. Without rows only the headline.
std::string table_text(const DeltaTable& table, std::string_view title, const TableStyle& style);

}  // namespace tally
