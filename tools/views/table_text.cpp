#include "views/table_text.h"

#include <fmt/color.h>
#include <fmt/format.h>

#include <algorithm>

#include "daemon/base/collection_types.h"

namespace tally {
namespace {

constexpr std::string_view kGap = "  ";

bool is_left_aligned(ColumnKind kind) {
  return kind == ColumnKind::mac || kind == ColumnKind::address || kind == ColumnKind::name;
}

std::string headline(const TableView& view) {
  std::string line = title(view.collection);
  if (view.kind == FileKind::delta) {
    line += fmt::format("  interval {} s", view.header.interval);
  } else {
    line += fmt::format("  {} sample", file_kind_name(view.kind));
    if (is_agent_type(view.collection.type)) {
      line += fmt::format("  up-time {}", view.header.up_time);
    }
  }
  line += "  sampled " + time_text(view.header.sample_time);
  if (view.now) {
    const std::int64_t age = *view.now - view.header.sample_time;
    // The daemon's clock may be a second ahead of the coarser one that is read here.
    line += age < -1 ? " (in the future)"
                     : fmt::format(" ({} ago)", duration_text(std::max<std::int64_t>(age, 0)));
  }
  line += fmt::format("  rows {}", view.count);
  if (view.accepted < view.count) line += fmt::format("  matching {}", view.accepted);
  if (view.rows.size() < view.accepted) line += fmt::format("  shown {}", view.rows.size());
  if (view.order.column && !view.rows.empty()) {
    line += fmt::format("  by {}", view.layout->columns[*view.order.column].name);
  }
  return line;
}

// finish cuts a line to the width, takes off blanks at its end and adds colour and newline.
std::string finish(std::string line, const TableStyle& style, fmt::text_style text_style) {
  if (style.width != 0 && line.size() > style.width) line.resize(style.width);
  line.erase(line.find_last_not_of(' ') + 1);
  if (style.colour && (text_style.has_emphasis() || text_style.has_foreground()))
    line = fmt::format(text_style, "{}", line);
  return line + '\n';
}

// Lines collects the columns of a table side by side.
class Lines {
 public:
  explicit Lines(std::size_t count) : lines_(count) {}

  void add(const std::vector<std::string>& cells, bool left_aligned) {
    std::size_t width = 0;
    for (const std::string& cell : cells) width = std::max(width, cell.size());
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      if (!lines_[i].empty()) lines_[i] += kGap;
      const std::size_t missing = width - cells[i].size();
      if (!left_aligned) lines_[i].append(missing, ' ');
      lines_[i] += cells[i];
      if (left_aligned) lines_[i].append(missing, ' ');
    }
  }

  std::vector<std::string>& all() { return lines_; }

 private:
  std::vector<std::string> lines_;
};

}  // namespace

std::string table_text(const TableView& view, const TableStyle& style) {
  std::string text = finish(headline(view), style, fmt::emphasis::bold);
  for (const FileNote& note : view.notes) {
    text += finish("! " + note.text, style, fg(fmt::terminal_color::yellow));
  }
  if (view.rows.empty()) return text;

  Lines lines(view.rows.size() + 1);
  for (std::size_t column = 0; column < view.layout->columns.size(); ++column) {
    const Column& what = view.layout->columns[column];
    if (!is_visible(what.kind)) continue;
    std::vector<std::string> cells{what.name};
    for (const Row& row : view.rows) {
      cells.push_back(cell_text(*view.layout, row.record, column, style.numbers));
    }
    lines.add(cells, is_left_aligned(what.kind));
  }
  if (std::any_of(view.rows.begin(), view.rows.end(),
                  [](const Row& row) { return row.notes != 0; })) {
    std::vector<std::string> cells{"notes"};
    for (const Row& row : view.rows) cells.push_back(row_note_codes(row.notes, " "));
    lines.add(cells, true);
  }
  bool names = true;
  for (std::string& line : lines.all()) {
    text += finish(std::move(line), style, names ? fmt::emphasis::underline : fmt::text_style{});
    names = false;
  }
  return text;
}

}  // namespace tally
