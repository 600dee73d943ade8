#include "views/table_text.h"

#include <fmt/color.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "daemon/base/collection_types.h"
#include "views/course.h"

namespace tally {
namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::size_t kFewestBars = 10;  // where they have room: an eighth of the line

bool is_left_aligned(const Column& column) {
  return column.kind == ColumnKind::mac || column.kind == ColumnKind::address ||
         column.kind == ColumnKind::name;
}

std::string styled(const std::string& text, const TableStyle& style, fmt::text_style text_style) {
  return (style.colour ? fmt::format(text_style, "{}", text) : text) + '\n';
}

std::string sampled_text(const TableView& view, const TableStyle& style) {
  const std::int32_t time = view.header.sample_time;
  std::string text = time_text(time);
  if (style.wide && !view.now) return text;
  const std::int64_t age = view.now.value_or(time) - time;
  // "2026-08-01T12:00:00+02:00": people know their zone, and which day it is.
  if (!style.wide) text = text.substr(0, 10) + ' ' + text.substr(11, 8);
  if (!style.wide && view.now && age >= 0 && age < kDay / 2) text = text.substr(11);
  if (!view.now) return text;
  // The daemon's clock may be a second ahead of the coarser one that is read here.
  return text + (age < -1
                     ? " (in the future)"
                     : fmt::format(" ({} ago)", duration_text(std::max<std::int64_t>(age, 0))));
}

std::size_t first_of(const TableStyle& style) {
  return style.cursor == nullptr ? 0 : style.cursor->first;
}

std::string headline(const TableView& view, const TableStyle& style, std::size_t shown) {
  std::string line = title(view.collection);
  if (view.kind == FileKind::delta) {
    line += fmt::format("  interval {} s", view.header.interval);
  } else {
    line += fmt::format("  {} sample", file_kind_name(view.kind));
    if (is_agent_type(view.collection.type)) {
      line += fmt::format("  up-time {}", view.header.up_time);
    }
  }
  line += "  sampled " + sampled_text(view, style) + "  ";
  const std::size_t first = first_of(style);
  if (first != 0) line += fmt::format("{} to ", first + 1);
  if (shown < view.count) line += fmt::format("{} of ", first + shown);
  line += fmt::format("{} row{}", view.count, view.count == 1 ? "" : "s");
  if (view.accepted < view.count) line += fmt::format(", {} matching", view.accepted);
  if (view.order.column && shown != 0) {
    const Column& column = view.layout->columns[*view.order.column];
    line += " by " + (style.wide ? column.name : heading_text(column, view.kind));
  }
  return line;
}

// notes_text writes the notes about the file; folded, only their codes.
std::string notes_text(const TableView& view, const TableStyle& style, bool folded) {
  std::string text;
  std::string codes;
  for (const FileNote& note : view.notes) {
    text += wrapped("! " + note.text, style.width) + '\n';
    codes += (codes.empty() ? "! " : ", ") + std::string(note.code);
  }
  if (folded && !codes.empty()) {
    const bool fits = codes.size() <= style.width;
    text = (fits ? codes : fmt::format("! {} notes", view.notes.size())) + '\n';
  }
  return text;
}

std::string head_text(const TableView& view, const TableStyle& style, std::size_t shown) {
  std::string text =
      styled(wrapped(headline(view, style, shown), style.width), style, fmt::emphasis::bold);
  std::string notes = notes_text(view, style, style.folded);
  // Some rows are always shown.
  const bool many = style.lines != 0 && lines_of(notes) > style.lines / 2;
  if (many) notes = notes_text(view, style, true);
  if (notes.empty()) return text;
  notes.pop_back();
  return text + styled(notes, style, fg(fmt::terminal_color::yellow));
}

// Table makes the columns of some rows.
class Table {
 public:
  // `brief`: names have little room.
  Table(const TableView& view, const TableStyle& style, const std::vector<Row>& rows, bool brief)
      : view_(view), style_(style), layout_(*view.layout), rows_(rows), brief_(brief) {}

  std::vector<TextColumn> columns() const {
    std::vector<TextColumn> all;
    for (std::size_t i = 0; style_.wide && i < layout_.columns.size(); ++i) {
      if (is_visible(layout_.columns[i].kind)) all.push_back(wide(i));
      if (has_names(i)) all.push_back(names(i));
    }
    for (const std::size_t i : style_.wide ? std::vector<std::size_t>() : people_columns(layout_)) {
      all.push_back(people(i));
      all.back().marked = i == view_.order.column;
      if (i == layout_.rank && !view_.totals.empty() && view_.totals[i] > 0) {
        all.push_back(shares());
      }
      if (i == layout_.rank && style_.course != nullptr && style_.course->samples() > 1) {
        all.push_back(bars());
      }
    }
    if (has_sum()) all.front().cells.back() = "total";
    if (std::ranges::any_of(rows_, [](const Row& row) { return row.notes != 0; })) {
      all.push_back(column("Notes", true, true,
                           [](const Row& row) { return row_note_codes(row.notes, " "); }));
      if (has_sum()) all.back().cells.emplace_back();
    }
    return all;
  }

  // A line for the sum of all rows, where no row of the file is that, and more than one are summed
  // up.
  bool has_sum() const {
    return !style_.wide && layout_.total == TotalRule::sum && !view_.totals.empty() &&
           view_.count > 1;
  }

 private:
  template <class Cell>
  TextColumn column(std::string heading, bool left_aligned, bool needed, const Cell& cell) const {
    TextColumn made{{std::move(heading)}, left_aligned, needed};
    for (const Row& row : rows_) made.cells.push_back(cell(row));
    return made;
  }

  TextColumn wide(std::size_t i) const {
    const Column& what = layout_.columns[i];
    return column(what.name, is_left_aligned(what), !is_value(what.kind), [&](const Row& row) {
      return cell_text(layout_, row.record, i, style_.numbers);
    });
  }

  bool has_names(std::size_t i) const {
    return style_.names != nullptr && std::ranges::any_of(rows_, [&](const Row& row) {
             return !style_.names->name_of(layout_, row.record, i).empty();
           });
  }

  TextColumn names(std::size_t i) const {
    return column(layout_.columns[i].name + std::string("_name"), true, true,
                  [&](const Row& row) { return style_.names->name_of(layout_, row.record, i); });
  }

  TextColumn people(std::size_t i) const {
    const Column& what = layout_.columns[i];
    if (!is_value(what.kind)) return key(i);
    // One rate is always there: that of the order, or the main one.
    const std::size_t by = view_.order.column.value_or(layout_.rank);
    const bool needed = i == (by < layout_.key_columns ? layout_.rank : by);
    TextColumn made = column(heading_text(what, view_.kind), false, needed, [&](const Row& row) {
      return people_text(what, value_of(layout_, row.record, i), view_.kind);
    });
    if (has_sum()) made.cells.push_back(people_text(what, view_.totals[i], view_.kind));
    return made;
  }

  TextColumn key(std::size_t i) const {
    const auto label = [&](const Row& row, bool brief) {
      return style_.names == nullptr ? cell_text(layout_, row.record, i, NumberStyle::exact)
                                     : style_.names->label_of(layout_, row.record, i, brief);
    };
    // A brief name that two things share tells neither.
    std::map<std::string, std::string> full_names;
    std::set<std::string> shared;
    for (const Row& row : rows_) {
      if (!brief_) break;
      const std::string full = label(row, false);
      const std::string brief = label(row, true);
      if (full_names.try_emplace(brief, full).first->second != full) shared.insert(brief);
    }
    TextColumn made = column(layout_.columns[i].heading, true, true, [&](const Row& row) {
      std::string text = label(row, brief_);
      return shared.contains(text) ? label(row, false) : text;
    });
    if (has_sum()) made.cells.emplace_back();
    return made;
  }

  TextColumn shares() const {
    const std::size_t i = layout_.rank;
    const double total = view_.totals[i];
    TextColumn made = column("Share", false, false, [&](const Row& row) {
      return is_rate(row.notes) ? percent_text(value_of(layout_, row.record, i) / total * 100)
                                : "-";
    });
    if (has_sum()) made.cells.push_back(percent_text(100));
    return made;
  }

  TextColumn bars() const {
    const Course& course = *style_.course;
    const std::size_t most = std::max(style_.width / 8, kFewestBars);
    const std::string heading = duration_text(view_.now.value_or(course.begin()) - course.begin());
    TextColumn made = column("Last " + heading, true, false, [&](const Row& row) {
      return course.bars(key_of(layout_, row.record), most);
    });
    if (has_sum()) made.cells.push_back(course.bars("", most));
    made.colour = kBarColour;
    return made;
  }

  const TableView& view_;
  const TableStyle& style_;
  const RecordLayout& layout_;
  const std::vector<Row>& rows_;
  const bool brief_;
};

}  // namespace

std::optional<double> sum_of(const TableView& view) {
  if (view.layout->total == TotalRule::none) return std::nullopt;
  return view.totals.empty() ? 0 : view.totals[view.layout->rank];
}

std::string table_text(const TableView& view, const TableStyle& style) {
  const auto is_part = [&](const Row& row) { return !is_total(*view.layout, row.record); };
  std::vector<Row> rows = view.rows;
  auto shown = static_cast<std::size_t>(std::ranges::count_if(rows, is_part));
  std::string text = head_text(view, style, shown);
  if (rows.empty()) return text;

  if (style.lines != 0) {
    // Headings, and perhaps a total, go with the rows; the headline may be longer when there are
    // fewer of them.
    const std::size_t others =
        1 + (rows.size() - shown) + (Table(view, style, rows, false).has_sum() ? 1U : 0U);
    const std::size_t all = shown;
    for (int pass = 0; pass < 2; ++pass) {
      const std::size_t taken = lines_of(text) + others;
      const std::size_t room = style.lines > taken ? style.lines - taken : 1;
      if (style.cursor != nullptr) style.cursor->keep(all, room);
      shown = std::min(room, all - first_of(style));
      text = head_text(view, style, shown);
    }
    const auto first = rows.begin() + static_cast<std::ptrdiff_t>(first_of(style));
    rows.erase(first + static_cast<std::ptrdiff_t>(shown),
               rows.begin() + static_cast<std::ptrdiff_t>(all));
    rows.erase(rows.begin(), first);
  }
  std::vector<TextColumn> columns = Table(view, style, rows, false).columns();
  std::string left_out = style.width == 0 ? "" : fit(columns, style.width);
  if (!left_out.empty() && style.names != nullptr) {
    columns = Table(view, style, rows, true).columns();
    left_out = fit(columns, style.width);
  }
  const auto line = style.cursor == nullptr
                        ? std::nullopt
                        : std::optional(style.cursor->selected - style.cursor->first + 1);
  text += joined(columns, {style.colour, line, style.width});
  if (!left_out.empty() && style.lines == 0) {
    text += styled(wrapped("no room for: " + left_out + " (--wide)", style.width), style,
                   fmt::emphasis::faint);
  }
  return text;
}

}  // namespace tally
