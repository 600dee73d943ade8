#include "views/text_columns.h"

#include <algorithm>
#include <string_view>

namespace tally {
namespace {

constexpr std::string_view kGap = "  ";
constexpr std::size_t kShortestWord = 4;

std::vector<std::size_t> widths_of(const std::vector<TextColumn>& columns) {
  std::vector<std::size_t> widths(columns.size());
  std::ranges::transform(columns, widths.begin(), &TextColumn::width);
  return widths;
}

// shorten takes `missing` characters from the widest columns of words.
void shorten(std::vector<TextColumn>& columns, std::size_t missing) {
  std::vector<std::size_t> widths = widths_of(columns);
  for (std::size_t i = 0; i < columns.size(); ++i) widths[i] *= columns[i].left_aligned ? 1 : 0;
  for (; missing > 0; --missing) {
    const auto widest = std::ranges::max_element(widths);
    if (*widest <= kShortestWord) break;
    --*widest;
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    for (std::string& cell : columns[i].cells) {
      if (!columns[i].left_aligned || text_width(cell) <= widths[i]) continue;
      cell.resize(widths[i] - 1);
      cell += '~';
    }
  }
}

// styled_cell sets a cell off where the column is: a heading that lines are sorted by, a colour,
// which does not stand out itself on a line that does.
std::string styled_cell(const TextColumn& column, std::size_t line, const JoinStyle& style) {
  const std::string& cell = column.cells[line];
  if (!style.styled || cell.empty()) return cell;
  if (line == 0) return column.marked ? "\x1b[7m" + cell + "\x1b[27m" : cell;
  if (column.colour == 0) return cell;
  const std::string coloured = coloured_text(cell, column.colour);
  return line == style.selected ? "\x1b[27m" + coloured + "\x1b[7m" : coloured;
}

}  // namespace

std::string coloured_text(const std::string& text, int colour) {
  return "\x1b[" + std::to_string(colour) + 'm' + text + "\x1b[39m";
}

std::size_t text_width(const std::string& text) {
  std::size_t width = 0;
  bool escaped = false;
  for (const char byte : text) {
    if (byte == '\x1b') escaped = true;
    if (!escaped && (byte & 0xc0) != 0x80) ++width;
    if (byte == 'm') escaped = false;
  }
  return width;
}

void Cursor::keep(std::size_t count, std::size_t room) {
  selected = std::min(selected, std::max<std::size_t>(count, 1) - 1);
  if (selected >= first + room) first = selected + 1 - room;
  first = std::min({first, selected, count > room ? count - room : 0});
}

std::size_t TextColumn::width() const {
  std::size_t width = 0;
  for (const std::string& cell : cells) width = std::max(width, text_width(cell));
  return width;
}

std::string fit(std::vector<TextColumn>& columns, std::size_t room) {
  room += kGap.size();
  std::size_t width = 0;
  for (const TextColumn& each : columns) width += each.needed ? each.width() + kGap.size() : 0;
  std::string left_out;
  std::erase_if(columns, [&](const TextColumn& each) {
    if (each.needed) return false;
    // Once a column is out, so are all behind it.
    if (left_out.empty() && width + each.width() + kGap.size() <= room) {
      width += each.width() + kGap.size();
      return false;
    }
    left_out += (left_out.empty() ? "" : "; ") + each.cells.front();
    return true;
  });
  if (width > room) shorten(columns, width - room);
  return left_out;
}

std::size_t lines_of(const std::string& text) {
  return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

std::string wrapped(std::string text, std::size_t width) {
  std::size_t begin = 0;
  while (width > kGap.size() && text.size() - begin > width) {
    const std::size_t least = begin + kGap.size();  // behind the indentation
    std::size_t end = text.rfind(kGap, begin + width);
    if (end == std::string::npos || end < least) end = text.rfind(' ', begin + width);
    if (end == std::string::npos || end < least) end = begin + width;
    const std::size_t next = std::min(text.find_first_not_of(' ', end), text.size());
    text.replace(end, next - end, "\n  ");
    begin = end + 1;
  }
  return text;
}

std::string joined(const std::vector<TextColumn>& columns, const JoinStyle& style) {
  const std::vector<std::size_t> widths = widths_of(columns);
  std::string text;
  for (std::size_t line = 0; line < columns.front().cells.size(); ++line) {
    std::string cells;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const std::size_t blanks = widths[i] - text_width(columns[i].cells[line]);
      if (i != 0) cells += kGap;
      if (!columns[i].left_aligned) cells.append(blanks, ' ');
      cells += styled_cell(columns[i], line, style);
      if (columns[i].left_aligned) cells.append(blanks, ' ');
    }
    cells.erase(cells.find_last_not_of(' ') + 1);
    const bool selected = line == style.selected;
    if (selected) cells.append(style.width - std::min(style.width, text_width(cells)), ' ');
    const bool set_off = selected || (line == 0 && style.styled);
    if (set_off) text += selected ? "\x1b[7m" : "\x1b[4m";
    text += cells;
    if (set_off) text += "\x1b[0m";
    text += '\n';
  }
  return text;
}

}  // namespace tally
