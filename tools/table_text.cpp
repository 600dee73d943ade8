#include "table_text.h"

#include <fmt/color.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tally {
namespace {

constexpr std::string_view kGap = "  ";

// precedes is a strict weak order of two values of one column. A value that is not a number comes
// after all numbers.
bool precedes(const Cell& left, const Cell& right) {
  if (const auto* rate = std::get_if<double>(&left)) {
    const double other = std::get<double>(right);
    if (std::isnan(*rate) || std::isnan(other)) return !std::isnan(*rate) && std::isnan(other);
    return *rate > other;
  }
  if (const auto* number = std::get_if<std::uint32_t>(&left)) {
    return *number < std::get<std::uint32_t>(right);
  }
  const auto& octets = std::get<Octets>(left).bytes;
  const auto& others = std::get<Octets>(right).bytes;
  return std::lexicographical_compare(octets.begin(), octets.end(), others.begin(), others.end());
}

bool is_left_aligned(ColumnKind kind) {
  return kind == ColumnKind::mac || kind == ColumnKind::address || kind == ColumnKind::name;
}

std::string headline(const DeltaTable& table, std::string_view title, const TableStyle& style,
                     std::size_t shown) {
  std::string line =
      fmt::format("{}  interval {} s  sampled {}  rows {}", title, table.header.interval,
                  time_text(table.header.sample_time), table.count());
  if (shown < table.count()) line += fmt::format("  shown {}", shown);
  if (style.sort_column && shown > 0) {
    line += fmt::format("  by {}", table.layout->columns[*style.sort_column].name);
  }
  return line;
}

// finish cuts a line to the width, takes off blanks at its end and adds colour and newline.
std::string finish(std::string line, const TableStyle& style, fmt::emphasis emphasis) {
  if (style.width != 0 && line.size() > style.width) line.resize(style.width);
  line.erase(line.find_last_not_of(' ') + 1);
  if (style.colour && emphasis != fmt::emphasis{}) line = fmt::format(emphasis, "{}", line);
  return line + '\n';
}

}  // namespace

std::vector<std::size_t> ordered_rows(const DeltaTable& table, const TableStyle& style) {
  std::vector<std::size_t> rows(table.count());
  std::iota(rows.begin(), rows.end(), std::size_t{0});
  auto totals = std::stable_partition(rows.begin(), rows.end(),
                                      [&](std::size_t row) { return !table.is_total(row); });
  if (style.sort_column) {
    std::stable_sort(rows.begin(), totals, [&](std::size_t left, std::size_t right) {
      return precedes(table.cell(left, *style.sort_column), table.cell(right, *style.sort_column));
    });
  }
  const auto others = static_cast<std::size_t>(totals - rows.begin());
  if (style.top != 0 && style.top < others) {
    rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(style.top), totals);
  }
  return rows;
}

std::string table_text(const DeltaTable& table, std::string_view title, const TableStyle& style) {
  const std::vector<std::size_t> rows = ordered_rows(table, style);
  std::string text = finish(headline(table, title, style, rows.size()), style, fmt::emphasis::bold);
  if (rows.empty()) return text;

  std::vector<std::string> lines(rows.size() + 1);
  for (std::size_t column = 0; column < table.layout->columns.size(); ++column) {
    const Column& what = table.layout->columns[column];
    if (what.kind == ColumnKind::length) continue;
    std::vector<std::string> cells{what.name};
    for (const std::size_t row : rows) {
      cells.push_back(cell_text(table, row, column, style.numbers));
    }
    std::size_t width = 0;
    for (const std::string& cell : cells) width = std::max(width, cell.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (!lines[i].empty()) lines[i] += kGap;
      lines[i] += is_left_aligned(what.kind) ? fmt::format("{:<{}}", cells[i], width)
                                             : fmt::format("{:>{}}", cells[i], width);
    }
  }
  text += finish(std::move(lines[0]), style, fmt::emphasis::underline);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    text += finish(std::move(lines[i]), style, fmt::emphasis{});
  }
  return text;
}

}  // namespace tally
