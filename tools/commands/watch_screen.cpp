// What watch shows on a screen, and the keys that it obeys there.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "commands/watcher.h"
#include "records/cell_text.h"

namespace tally {
namespace {

// Rows that are read beyond those on show, so that moving on does not read the file again.
constexpr std::size_t kMoreRows = 64;

// The size of a terminal that does not tell.
constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kUsualLines = 24;

// The lines at the bottom, of which there are as many parts as have room.
constexpr const char* kOverviewKeys =
    "q quit  Enter open  ? keys  / filter  arrows select, sort  r reverse  p pause";
constexpr const char* kTableKeys =
    "q quit  Esc back  ? keys  / filter  arrows scroll, sort  r reverse  n notes  p pause";
constexpr const char* kAllKeys[] = {
    "q            quit",
    "up, down     select a line; PgUp and PgDn move by half a screen",
    "left, right  sort by another column; s, too",
    "r            sort the other way round",
    "Enter        open the selected collection of the overview",
    "Esc          end the filter, then go back to the overview; Backspace, too",
    "/            only lines with a text; of rows also COLUMN>1k or COLUMN=PATTERN",
    "n            notes about the files: only their codes, or in full",
    "p            freeze what is shown, or go on",
};

// keep_lines cuts a text behind its first `count` lines.
void keep_lines(std::string& text, std::size_t count) {
  std::size_t end = 0;
  for (; count > 0; --count) {
    end = text.find('\n', end) + 1;
    if (end == 0) return;  // there are no more
  }
  text.resize(end);
}

// one_line makes words exactly as wide as a line; what has no room goes, from blanks on.
std::string one_line(std::string text, std::size_t width) {
  if (text.size() > width) text.resize(std::min(text.rfind("  ", width), width));
  text.resize(width, ' ');
  return text;
}

}  // namespace

// table writes one collection, in as many lines as the style allows.
std::string Watcher::table(Watched& watched, TableStyle style) {
  if (!watched.files) {
    const std::string name = title(watched.digest.collection);
    return wrapped(fmt::format("{}  {}", name, watched.remark), style.width) + '\n';
  }
  style.wide = options_.wide;
  style.names = &names_;
  style.numbers = options_.si || style.lines != 0 ? NumberStyle::si : NumberStyle::exact;
  RowOrder order = watched.order;
  std::size_t rows = 0;  // as many as were asked for
  if (style.lines != 0) {
    style.course = &watched.digest.course;
    style.cursor = &watched.cursor;
    style.folded = !unfolded_;
    rows = watched.cursor.selected + style.lines;
    if (!order.column) order.column = watched.files->main.layout->rank;
  }
  if (!watched.loaded || watched.loaded_rows < rows) {
    if (rows != 0) rows += kMoreRows;
    if (rows != 0) order.top = order.top == 0 ? rows : std::min(order.top, rows);
    watched.loaded_rows = rows;
    watched.loaded.emplace(load_view(*watched.files, *watched.filter, order,
                                     !options_.no_notes ? &annotate_ : nullptr));
  }
  watched.loaded->view.now = std::time(nullptr);
  std::string text = table_text(watched.loaded->view, style);
  if (style.lines != 0) keep_lines(text, style.lines);
  return text;
}

// overview writes a line for each collection that has what is sought.
std::string Watcher::overview(const TableStyle& style) {
  const std::int64_t now = std::time(nullptr);
  std::size_t states[4] = {};
  listed_.clear();
  for (const Watched& each : all_) {
    const Digest& digest = each.digest;
    const Health health = digest.health(now);
    ++states[static_cast<std::size_t>(health)];
    const std::string words = fmt::format("{} {} {} {}", title(digest.collection),
                                          record_layout(digest.collection.type)->title,
                                          health_word(health), digest.busiest);
    if (strcasestr(words.c_str(), sought_.c_str()) != nullptr) listed_.push_back(&digest);
  }
  std::string head = fmt::format("{} collection{}", all_.size(), all_.size() == 1 ? "" : "s");
  for (const Health health : {Health::live, Health::stale, Health::failing, Health::waiting}) {
    const std::size_t count = states[static_cast<std::size_t>(health)];
    if (count != 0) head += fmt::format(", {} {}", count, health_word(health));
  }
  if (all_.empty()) head += "; 'tallyctl create host 1' starts one";
  head = wrapped(head, style.width) + '\n';
  if (listed_.empty()) return head;

  auto columns = overview_columns(listed_, sorted_by_, reversed_, style.width, style.colour, now);
  const Digest& at = *selected();
  std::string trouble = at.trouble;
  if (trouble.empty() && at.health(now) == Health::stale) {
    trouble = "a newer sample should be there; 'tallyctl check' looks for the reason";
  }
  if (!trouble.empty()) {
    trouble = wrapped(title(at.collection) + ": " + trouble, style.width) + '\n';
  }
  const std::size_t taken = lines_of(head + trouble) + 1;
  cursor_.keep(listed_.size(), style.lines > taken ? style.lines - taken : 1);
  (void)fit(columns, style.width);
  const auto first = static_cast<std::ptrdiff_t>(cursor_.first);
  for (TextColumn& each : columns)
    each.cells.erase(each.cells.begin() + 1, each.cells.begin() + 1 + first);
  std::string lines =
      joined(columns, {style.colour, cursor_.selected - cursor_.first + 1, style.width});
  keep_lines(lines, style.lines - std::min(taken - 1, style.lines));
  return head + lines + trouble;
}

// frame writes a whole screen: a line on top, tables, and a line at the bottom.
std::string Watcher::frame(const Terminal& terminal) {
  const std::size_t width = terminal.columns != 0 ? terminal.columns : kUsualColumns;
  const std::size_t lines = terminal.lines != 0 ? terminal.lines : kUsualLines;
  std::string top = "tallyctl watch  " + time_text(std::time(nullptr)).substr(11, 8);
  if (!sought_.empty() || typing_) top += fmt::format("  /{}", sought_);
  if (frozen_) top += "  paused";
  std::string text = one_line(top, width) + '\n';
  if (!trouble_.empty()) text += wrapped(trouble_, width) + '\n';
  const std::size_t taken = lines_of(text) + 1;
  TableStyle style{.colour = terminal.colour && options_.colour != "never",
                   .width = width,
                   .lines = std::max(lines, taken + 2) - taken};
  page_ = static_cast<std::ptrdiff_t>(lines / 2);
  if (keys_shown_) {
    for (const char* const each : kAllKeys) text += wrapped(each, width) + '\n';
  } else if (at_overview()) {
    text += overview(style);
  } else {
    const std::vector<Watched*> shown = on_show();
    // A blank line stands between tables.
    style.lines = std::max<std::size_t>((style.lines + 1) / shown.size(), 2) - 1;
    for (Watched* const each : shown) {
      if (each != shown.front()) text += '\n';
      text += table(*each, style);
    }
  }
  keep_lines(text, lines - 1);
  text.append(lines - 1 - std::min(lines_of(text), lines - 1), '\n');
  std::string bottom = at_overview() ? kOverviewKeys : kTableKeys;
  if (typing_) bottom = fmt::format("/{}_  Enter: done, Esc: all", sought_);
  return text + "\x1b[7m" + one_line(bottom, width) + "\x1b[0m";
}

// open goes into a collection of the overview; with nothing, back to it.
void Watcher::open(std::optional<Collection> collection) {
  for (Watched* const each : on_show()) each->files.reset();  // the overview does not need them
  open_ = collection;
  sought_.clear();
  for (Watched* const each : on_show()) {
    filter(*each);
    each->stamp.reset();
    (void)look(*each);
  }
}

void Watcher::seek(std::string text) {
  sought_ = std::move(text);
  for (Watched* const each : on_show()) filter(*each);
}

// type takes a key of what is sought.
void Watcher::type(int key) {
  std::string text = key == kEscape ? "" : sought_;
  if (key == kEnter || key == kEscape) typing_ = false;
  if (key == kBackspace && !text.empty()) text.pop_back();
  if (key >= ' ' && key <= '~') text += static_cast<char>(key);
  seek(text);
}

// move selects another line; the next frame keeps it within the lines there are.
void Watcher::move(std::ptrdiff_t lines) {
  const auto moved = [lines](Cursor& cursor) {
    const auto at = static_cast<std::ptrdiff_t>(cursor.selected) + lines;
    cursor.selected = static_cast<std::size_t>(std::max(at, std::ptrdiff_t{0}));
  };
  if (at_overview()) moved(cursor_);
  for (Watched* const each : on_show()) moved(each->cursor);
}

// go_back ends the filter, or leaves an open collection.
void Watcher::go_back() {
  if (!sought_.empty()) {
    seek("");
  } else if (open_) {
    open({});
  }
}

void Watcher::reverse() {
  reversed_ = reversed_ != at_overview();
  for (Watched* const each : on_show()) {
    each->order.reversed = !each->order.reversed;
    each->loaded.reset();
  }
}

// sort goes on to the next column to the right, or to the left.
void Watcher::sort(bool right) {
  if (at_overview()) sorted_by_ = next_sorting(sorted_by_, right);
  for (Watched* const each : on_show()) {
    const RecordLayout& layout = *record_layout(each->digest.collection.type);
    std::vector<std::size_t> columns = people_columns(layout);
    if (!right) std::ranges::reverse(columns);
    auto at = std::ranges::find(columns, each->order.column.value_or(layout.rank));
    if (at == columns.end() || ++at == columns.end()) at = columns.begin();
    each->order.column = *at;
    each->loaded.reset();
  }
}

// obey does what a key says. Returns false for the one that ends the command.
bool Watcher::obey(int key) {
  constexpr std::pair<int, void (*)(Watcher&)> kActions[] = {
      {'?', [](Watcher& self) { self.keys_shown_ = true; }},
      {'/', [](Watcher& self) { self.typing_ = true; }},
      {'p', [](Watcher& self) { self.frozen_ = !self.frozen_; }},
      {'n', [](Watcher& self) { self.unfolded_ = !self.unfolded_; }},
      {'r', [](Watcher& self) { self.reverse(); }},
      {'s', [](Watcher& self) { self.sort(true); }},
      {kRight, [](Watcher& self) { self.sort(true); }},
      {kLeft, [](Watcher& self) { self.sort(false); }},
      {kUp, [](Watcher& self) { self.move(-1); }},
      {kDown, [](Watcher& self) { self.move(1); }},
      {kPageUp, [](Watcher& self) { self.move(-self.page_); }},
      {kPageDown, [](Watcher& self) { self.move(self.page_); }},
      {kEnter,
       [](Watcher& self) {
         const Digest* const selected = self.at_overview() ? self.selected() : nullptr;
         if (selected != nullptr) self.open(selected->collection);
       }},
      {kEscape, [](Watcher& self) { self.go_back(); }},
      {kBackspace, [](Watcher& self) { self.go_back(); }},
  };
  if (typing_) {
    type(key);
    return true;
  }
  if (std::exchange(keys_shown_, false)) return true;
  for (const auto& [of, act] : kActions) {
    if (of == key) act(*this);
  }
  return key != 'q' && key != 'Q';
}

}  // namespace tally
