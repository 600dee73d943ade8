// Columns of text side by side, as wide as they need to be and no wider than there is room for.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tally {

// TextColumn is a column of a table: its heading, then a cell for each line.
struct TextColumn {
  std::vector<std::string> cells;  // in UTF-8; each character takes one place, but colours none
  bool left_aligned;
  bool needed;          // stays where others are left out
  bool marked = false;  // the lines are sorted by it
  int colour = 0;       // of the cells, as a terminal calls it: 36; 0: none

  std::size_t width() const;
};

// coloured_text sets a colour for a text, and nothing else.
std::string coloured_text(const std::string& text, int colour);

// text_width counts the places that a text takes.
std::size_t text_width(const std::string& text);

std::size_t lines_of(const std::string& text);

// Cursor is a line of a list, and the first line on show.
struct Cursor {
  std::size_t selected = 0;
  std::size_t first = 0;

  // keep brings the selected one of `count` lines into a room of so many.
  void keep(std::size_t count, std::size_t room);
};

// fit makes columns fit side by side. It takes out those that are not needed, from the last one
// forward, and returns their headings; where the needed ones alone have no room it shortens their
// widest words, which then end in "~". Figures are never cut.
std::string fit(std::vector<TextColumn>& columns, std::size_t room);

struct JoinStyle {
  bool styled = false;                    // headings underlined, cells coloured
  std::optional<std::size_t> selected{};  // line of the cells that stands out
  std::size_t width = 0;                  // how far it does
};

// wrapped breaks a text between words, or between its parts (two blanks) where it has some; what
// goes on in the next line is indented.
std::string wrapped(std::string text, std::size_t width);

// joined writes the columns side by side, a line each.
std::string joined(const std::vector<TextColumn>& columns, const JoinStyle& style);

}  // namespace tally
