// watch: several collections, shown again at each new delta file; on a terminal also all of them at
// a glance, and each by itself from there.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <list>
#include <utility>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "pipe/pipe_writer.h"
#include "probes/settings_probe.h"
#include "records/cell_text.h"
#include "views/overview.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

// Between two looks at everything: the age of the samples goes on, and not every file system tells
// of changes.
constexpr std::chrono::milliseconds kTick{1000};

// A file that is being written is looked at again soon, should the event have come too early.
constexpr std::chrono::milliseconds kSoon{50};

// Collections of an overview that are kept viewed: their courses go on, but an agent with hundreds
// of tables is not asked for all of them every interval.
constexpr std::size_t kMostViewed = 40;

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

// Watched is one collection and what is known of its delta file.
struct Watched {
  Digest digest{};
  std::string path{};
  RowOrder order{};
  std::optional<RowFilter> filter{};
  std::optional<FileStamp> stamp{};  // of the file that was read last
  std::optional<OpenFiles> files{};  // nothing until there is a good delta file
  std::string remark{};              // why there is none
  unsigned rates_shown = 0;          // delta files with rows
  bool writing = false;
  std::optional<LoadedView> loaded{};  // of `files`, as far as there was room for so many rows:
  std::size_t loaded_rows = 0;
  Cursor cursor{};
};

// sorted_by is order_for, but not every type needs to have the column.
RowOrder sorted_by(const Collection& collection, const Options& options) {
  const auto has_column = [&](const Collection& each) {
    return find_column(*record_layout(each.type), options.sort).has_value();
  };
  const bool of_another =
      !has_column(collection) &&
      std::any_of(options.collections.begin(), options.collections.end(), has_column);
  return order_for(*record_layout(collection.type), of_another ? "" : options.sort,
                   options.reversed, options.top);
}

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

// Watcher is the state of the command.
class Watcher {
 public:
  Watcher(const ToolPaths& paths, const Options& options)
      : paths_(paths),
        options_(options),
        annotate_(annotate_options(paths, options.line_speed * 1e6)),
        all_at_a_glance_(options.collections.empty()) {
    if (options.resolve) names_.resolve();
    for (const Collection& each : options.collections) add(each);
  }

  ExitCode run();

 private:
  void add(const Collection& collection);
  void filter(Watched& watched);
  void list();
  bool look(Watched& watched);
  bool tell_daemon();
  bool show_news();
  bool obey(int key);
  void type(int key);
  void seek(std::string text);
  void open(std::optional<Collection> collection);
  void move(std::ptrdiff_t lines);
  void sort(bool right);
  bool at_overview() const { return all_at_a_glance_ && !open_; }
  std::vector<Watched*> on_show();
  std::string frame(const Terminal& terminal);
  std::string overview(const TableStyle& style);
  std::string table(Watched& watched, TableStyle style);
  ExitCode verdict() const;

  const ToolPaths& paths_;
  const Options& options_;
  AnnotateOptions annotate_;
  Names names_;
  std::list<Watched> all_;  // those that were named, or all there are
  std::string trouble_;
  Clock::time_point next_viewing_ = Clock::now();
  bool changed_ = true;  // the directory, since it was listed

  // Of a screen:
  std::optional<Screen> screen_;
  const bool all_at_a_glance_;         // no collection was named
  std::optional<Collection> open_;     // from the overview
  std::vector<const Digest*> listed_;  // its lines
  std::size_t sorted_by_ = 0;
  bool reversed_ = false;
  Cursor cursor_;
  std::ptrdiff_t page_ = 1;  // lines
  std::string sought_;       // what lines have in them
  bool typing_ = false;      // it
  bool frozen_ = false;
  bool unfolded_ = false;  // notes
  bool keys_shown_ = false;
};

void Watcher::add(const Collection& collection) {
  Watched made{.path = file_path(paths_.data_directory, collection, FileKind::delta),
               .order = sorted_by(collection, options_)};
  made.digest.collection = collection;
  made.digest.viewed = !options_.no_viewing;
  filter(made);
  all_.push_back(std::move(made));
}

// filter settles which rows are shown: a text that is no condition is sought in their keys.
void Watcher::filter(Watched& watched) {
  const RecordLayout& layout = *record_layout(watched.digest.collection.type);
  std::vector<std::string> conditions = options_.where;
  watched.loaded.reset();
  watched.filter.emplace(layout, conditions, &names_);
  if (at_overview()) return;
  if (sought_.find_first_of("=<>") == std::string::npos) return watched.filter->search(sought_);
  try {
    conditions.push_back(sought_);
    RowFilter read(layout, conditions, &names_);  // throws before the old one is gone
    watched.filter.emplace(std::move(read));
  } catch (const UsageError&) {  // it is not typed to its end
  }
}

// list finds the collections that have come and gone.
void Watcher::list() {
  std::string error;
  const auto present = present_collections(paths_.data_directory, error);
  const auto of = [](const Watched& watched) { return watched.digest.collection; };
  listed_.clear();
  std::erase_if(all_, [&](const Watched& each) {
    return std::ranges::find(present, of(each)) == present.end();
  });
  for (const Collection& each : present) {
    if (std::ranges::find(all_, each, of) == all_.end()) add(each);
  }
  if (on_show().empty()) open_.reset();
}

// look reads the delta file again if it changed. Returns whether there is something new to show. A
// file that is being written is left for the next look.
bool Watcher::look(Watched& watched) {
  const Collection& collection = watched.digest.collection;
  watched.writing = false;
  const auto stamp = stamp_of(watched.path);
  if (stamp && stamp == watched.stamp) return false;
  OpenFiles files =
      open_files(paths_.data_directory, collection, FileKind::delta,
                 !options_.no_notes ? Samples::both : Samples::none, std::chrono::milliseconds{0});
  watched.writing = files.main.state == FileState::writing;
  if (watched.writing) return false;
  watched.loaded.reset();
  watched.stamp = stamp ? std::optional(files.main.stamp) : std::nullopt;
  const auto lack = stamp ? std::nullopt : lack_of(paths_.data_directory, collection);
  if (lack) files.main.remark = fmt::format("{}: {}", lack->text, lack->advice);
  if (screen_) watched.digest.take(files, annotate_, names_);
  if (!files.main.good()) {
    watched.files.reset();
    return files.main.remark != std::exchange(watched.remark, files.main.remark);
  }
  watched.remark.clear();
  if (files.main.count() > 0) ++watched.rates_shown;
  if (!all_at_a_glance_ || open_ == collection) watched.files = std::move(files);
  return true;
}

// tell_daemon says, when it is time, that somebody looks. Returns whether the trouble has changed.
bool Watcher::tell_daemon() {
  if (options_.no_viewing || Clock::now() < next_viewing_) return false;
  next_viewing_ = Clock::now() + std::chrono::seconds(options_.every);
  std::string error;
  std::size_t told = 0;
  for (Watched& watched : all_) {
    const bool enough = all_at_a_glance_ && ++told > kMostViewed;
    watched.digest.viewed = !enough || open_ == watched.digest.collection;
    if (!watched.digest.viewed) continue;
    const ControlMessage message = message_about(MessageType::viewing, watched.digest.collection);
    error = send_message(paths_.control_pipe, message, std::chrono::milliseconds{0}).text();
    if (!error.empty()) break;
  }
  return error != std::exchange(trouble_, error);
}

std::vector<Watched*> Watcher::on_show() {
  std::vector<Watched*> shown;
  for (Watched& watched : all_) {
    if (!all_at_a_glance_ || open_ == watched.digest.collection) shown.push_back(&watched);
  }
  return shown;
}

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
  const Digest& selected = *listed_[std::min(cursor_.selected, listed_.size() - 1)];
  std::string trouble = selected.trouble;
  if (trouble.empty() && selected.health(now) == Health::stale) {
    trouble = "a newer sample should be there; 'tallyctl check' looks for the reason";
  }
  if (!trouble.empty()) {
    trouble = wrapped(title(selected.collection) + ": " + trouble, style.width) + '\n';
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
  if (typing_) {
    type(key);
    return true;
  }
  if (std::exchange(keys_shown_, false)) return true;
  switch (key) {
    case 'q':
    case 'Q':
      return false;
    case '?':
      keys_shown_ = true;
      return true;
    case '/':
      typing_ = true;
      return true;
    case 'p':
      frozen_ = !frozen_;
      return true;
    case 'n':
      unfolded_ = !unfolded_;
      return true;
    case 'r':
      reversed_ = reversed_ != at_overview();
      for (Watched* const each : on_show()) {
        each->order.reversed = !each->order.reversed;
        each->loaded.reset();
      }
      return true;
    case kEnter:
      if (at_overview() && !listed_.empty()) {
        open(listed_[std::min(cursor_.selected, listed_.size() - 1)]->collection);
      }
      return true;
    case kEscape:
    case kBackspace:
      if (!sought_.empty()) {
        seek("");
      } else if (open_) {
        open({});
      }
      return true;
    case 's':
    case kRight:
    case kLeft:
      sort(key != kLeft);
      return true;
    case kUp:
    case kDown:
      move(key == kUp ? -1 : 1);
      return true;
    case kPageUp:
    case kPageDown:
      move(key == kPageUp ? -page_ : page_);
      return true;
    default:
      return true;
  }
}

// show_news looks at all files and shows what is new. Returns false when standard output takes no
// more.
bool Watcher::show_news() {
  names_.refresh();
  if (changed_ && !frozen_) {
    annotate_.others = covered_times(paths_.data_directory);
    if (all_at_a_glance_) list();
    changed_ = false;
  }
  if (tell_daemon() && !screen_ && !trouble_.empty()) complain(trouble_);
  for (Watched& watched : all_) {
    if (frozen_ || !look(watched) || screen_) continue;
    if (!watched.files) {
      complain("{}: {}", title(watched.digest.collection), watched.remark);
      continue;
    }
    if (!put(table(watched, {}) + '\n')) return false;
  }
  return !screen_ || screen_->draw(frame(look_at_terminal()));
}

// verdict tells, in words and as an exit code, whether the rates of all named collections were
// shown.
ExitCode Watcher::verdict() const {
  ExitCode code = kDone;
  for (const Watched& watched : all_) {
    if (all_at_a_glance_ || watched.rates_shown > 0) continue;
    complain("{}: no rates were shown; 'tallyctl check' looks for the reason",
             title(watched.digest.collection));
    code = trouble_.empty() ? kAbsent : kUnreachable;
  }
  return code;
}

ExitCode Watcher::run() {
  const bool terminal = look_at_terminal().present;
  if (all_at_a_glance_ && !(terminal && options_.sort.empty() && options_.where.empty())) {
    throw UsageError(
        "the overview needs a terminal, and takes no --sort and --where; else name collections: "
        "TYPE INDEX ...");
  }
  Signals signals([&] { screen_ ? screen_->suspend() : (void)raise(SIGSTOP); });
  const FileEvents events(paths_.data_directory);
  const Deadline deadline{std::chrono::seconds(options_.seconds)};
  if (!all_at_a_glance_) (void)tell_daemon();
  if (!trouble_.empty()) {
    complain(trouble_);
    return kUnreachable;
  }
  if (terminal) screen_.emplace();
  for (;;) {
    if (!show_news()) return kAbsent;
    const bool counted =
        options_.count != 0 && std::all_of(all_.begin(), all_.end(), [&](auto& each) {
          return each.rates_shown >= options_.count;
        });
    if (counted || deadline.over()) break;
    const bool soon =
        std::any_of(all_.begin(), all_.end(), [](const Watched& each) { return each.writing; });
    wait_for({signals.fd(), events.fd(), screen_ ? screen_->keys_fd() : -1}, soon ? kSoon : kTick);
    const FileEvents::Changes changes = events.take();  // the stamps tell which
    changed_ = changed_ || changes.any_file || !changes.names.empty() || events.fd() < 0;
    bool end = signals.ended();
    for (const int key : screen_ ? screen_->keys() : std::vector<int>()) end = end || !obey(key);
    if (end) break;
  }
  screen_.reset();
  return verdict();
}

}  // namespace

ExitCode watch(const ToolPaths& paths, const Options& options) {
  return Watcher(paths, options).run();
}

}  // namespace tally
