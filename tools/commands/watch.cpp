// watch: several collections, shown again at each new delta file.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "pipe/pipe_writer.h"
#include "probes/settings_probe.h"
#include "views/view.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

// Between two looks at everything: the age of the samples goes on, and not every file system tells
// of changes.
constexpr std::chrono::milliseconds kTick{1000};

// A file that is being written is looked at again soon, should the event have come too early.
constexpr std::chrono::milliseconds kSoon{50};

// Watched is one collection and what is known of its delta file.
struct Watched {
  Collection collection;
  std::string path;
  RowFilter filter;
  RowOrder order;
  std::optional<FileStamp> stamp{};  // of the file that was read last
  std::optional<OpenFiles> files{};  // nothing until there is a good delta file
  std::string remark{};              // why there is none
  unsigned rates_shown = 0;          // delta files with rows
  bool writing = false;
  std::optional<LoadedView> loaded{};  // of `files`, for a screen with room for so many rows:
  std::size_t loaded_room = 0;
};

// sorted_by is order_for, but not every type needs to have the column.
RowOrder sorted_by(const Collection& collection, const WatchOptions& options) {
  const ViewOptions& view = options.view;
  const auto has_column = [&](const Collection& each) {
    return find_column(*record_layout(each.type), view.sort).has_value();
  };
  const bool of_another =
      !has_column(collection) &&
      std::any_of(options.collections.begin(), options.collections.end(), has_column);
  return order_for(*record_layout(collection.type), of_another ? "" : view.sort, view.reversed,
                   view.top);
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

// Watcher is the state of the command.
class Watcher {
 public:
  Watcher(const ToolPaths& paths, const WatchOptions& options)
      : paths_(paths),
        options_(options),
        annotate_{planned_interval(paths.preferences), options.view.line_speed} {
    if (options.view.resolve) names_.resolve();
    for (const Collection& collection : options.collections) {
      Watched watched{collection, file_path(paths.data_directory, collection, FileKind::delta),
                      RowFilter(*record_layout(collection.type), options.view.where, &names_),
                      sorted_by(collection, options)};
      all_.push_back(std::move(watched));
    }
  }

  ExitCode run();

 private:
  bool look(Watched& watched);
  bool tell_daemon();
  bool show_news(Screen* screen);
  bool obey(const std::string& keys);
  std::string frame(const Terminal& terminal);
  std::string table(Watched& watched, TableStyle style) const;
  void load(Watched& watched, std::size_t room) const;
  ExitCode verdict() const;

  const ToolPaths& paths_;
  const WatchOptions& options_;
  const AnnotateOptions annotate_;
  Names names_;
  std::vector<Watched> all_;
  std::string trouble_;
  Clock::time_point next_viewing_ = Clock::now();
};

// look reads the delta file again if it changed. Returns whether there is something new to show. A
// file that is being written is left for the next look.
bool Watcher::look(Watched& watched) {
  watched.writing = false;
  const auto stamp = stamp_of(watched.path);
  if (stamp && stamp == watched.stamp) return false;
  OpenFiles files =
      open_files(paths_.data_directory, watched.collection, FileKind::delta,
                 options_.view.notes ? Samples::both : Samples::none, std::chrono::milliseconds{0});
  watched.writing = files.main.state == FileState::writing;
  if (watched.writing) return false;
  watched.loaded.reset();
  watched.stamp = stamp ? std::optional(files.main.stamp) : std::nullopt;
  if (!files.main.good()) {
    watched.files.reset();
    return files.main.remark != std::exchange(watched.remark, files.main.remark);
  }
  watched.remark.clear();
  if (files.main.count() > 0) ++watched.rates_shown;
  watched.files = std::move(files);
  return true;
}

// tell_daemon says, when it is time, that somebody looks. Returns whether the trouble has changed.
bool Watcher::tell_daemon() {
  if (!options_.viewing || Clock::now() < next_viewing_) return false;
  next_viewing_ = Clock::now() + options_.viewing_period;
  std::string error;
  for (const Watched& watched : all_) {
    const auto& [type, index] = watched.collection;
    const ControlMessage message{static_cast<std::uint32_t>(MessageType::viewing), type, index};
    error = send_message(paths_.control_pipe, message, std::chrono::milliseconds{0}).text();
    if (!error.empty()) break;
  }
  return error != std::exchange(trouble_, error);
}

// load reads the rows that there is room for; 0: as many as were asked for.
void Watcher::load(Watched& watched, std::size_t room) const {
  RowOrder order = watched.order;
  if (room != 0) {
    order.top = order.top == 0 ? room : std::min(order.top, room);
    if (!order.column) order.column = watched.files->main.layout->rank;
  }
  watched.loaded_room = room;
  watched.loaded.emplace(
      load_view(*watched.files, watched.filter, order, options_.view.notes ? &annotate_ : nullptr));
}

// table writes one collection, in as many lines as the style allows.
std::string Watcher::table(Watched& watched, TableStyle style) const {
  if (!watched.files) return fmt::format("{}  {}\n", title(watched.collection), watched.remark);
  if (!watched.loaded || watched.loaded_room != style.lines) load(watched, style.lines);
  if (style.lines != 0) {
    // Notes take the room of rows, but some rows are always shown.
    std::vector<FileNote>& notes = watched.loaded->view.notes;
    notes.resize(std::min(notes.size(), style.lines / 2));
  }
  watched.loaded->view.now = std::time(nullptr);
  style.wide = options_.view.wide;
  style.names = &names_;
  style.numbers = options_.view.si || style.lines != 0 ? NumberStyle::si : NumberStyle::exact;
  std::string text = table_text(watched.loaded->view, style);
  if (style.lines != 0) keep_lines(text, style.lines);
  return text;
}

// frame writes all collections for a terminal.
std::string Watcher::frame(const Terminal& terminal) {
  const auto cut = [&](std::string text) {
    if (terminal.columns != 0 && text.size() > terminal.columns) text.resize(terminal.columns);
    return text;
  };
  // A blank line goes with each table; the first line of the screen is for the keys, the last one
  // for trouble.
  const std::size_t share = (std::max<std::size_t>(terminal.lines, 2) - 2) / all_.size();
  const TableStyle style{.colour = terminal.colour && !options_.view.no_colour,
                         .width = terminal.columns,
                         .lines = std::max<std::size_t>(share, 2) - 1};
  std::string text =
      cut(fmt::format("tallyctl watch  {}  q quit, s sort by the next column, r reverse",
                      time_text(std::time(nullptr)))) +
      '\n';
  for (Watched& watched : all_) text += table(watched, style) + '\n';
  // A terminal of a few lines gets what fits.
  if (terminal.lines != 0) keep_lines(text, terminal.lines - 1);
  return text + cut(trouble_);
}

// obey does what keys say. Returns false for the one that ends the command.
bool Watcher::obey(const std::string& keys) {
  for (const char key : keys) {
    if (key == 'q' || key == 'Q') return false;
    for (Watched& watched : all_) {
      const RecordLayout& layout = *record_layout(watched.collection.type);
      watched.loaded.reset();
      if (key == 'r') watched.order.reversed = !watched.order.reversed;
      if (key != 's') continue;
      std::size_t column = watched.order.column.value_or(layout.rank);
      do {
        column = (column + 1) % layout.columns.size();
      } while (!is_visible(layout.columns[column].kind) || layout.columns[column].detail);
      watched.order.column = column;
    }
  }
  return true;
}

// show_news looks at all files and shows what is new. Returns false when standard output takes no
// more.
bool Watcher::show_news(Screen* screen) {
  names_.refresh();
  if (tell_daemon() && screen == nullptr && !trouble_.empty()) complain(trouble_);
  for (Watched& watched : all_) {
    if (!look(watched) || screen != nullptr) continue;
    if (!watched.files) {
      complain(fmt::format("{}: {}", title(watched.collection), watched.remark));
      continue;
    }
    if (!put(table(watched, {}) + '\n')) return false;
  }
  return screen == nullptr || screen->draw(frame(look_at_terminal()));
}

// verdict tells, in words and as an exit code, whether the rates of all collections were shown.
ExitCode Watcher::verdict() const {
  ExitCode code = kDone;
  for (const Watched& watched : all_) {
    if (watched.rates_shown > 0) continue;
    complain(fmt::format("{}: no rates were shown; 'tallyctl check' looks for the reason",
                         title(watched.collection)));
    code = trouble_.empty() ? kAbsent : kUnreachable;
  }
  return code;
}

ExitCode Watcher::run() {
  Signals signals;
  const FileEvents events(paths_.data_directory);
  const Deadline deadline(options_.duration);
  (void)tell_daemon();
  if (!trouble_.empty()) {
    complain(trouble_);
    return kUnreachable;
  }
  {
    std::optional<Screen> screen;
    if (look_at_terminal().present) screen.emplace();
    for (;;) {
      if (!show_news(screen ? &*screen : nullptr)) return kAbsent;
      const bool counted = options_.count && std::all_of(all_.begin(), all_.end(), [&](auto& each) {
                             return each.rates_shown >= *options_.count;
                           });
      if (counted || deadline.over()) break;
      const bool soon =
          std::any_of(all_.begin(), all_.end(), [](const Watched& each) { return each.writing; });
      wait_for({signals.fd(), events.fd(), screen ? screen->keys_fd() : -1}, soon ? kSoon : kTick);
      (void)events.take();  // the stamps tell which
      const Signals::Taken taken = signals.take();
      if (taken.end || (screen && !obey(screen->keys()))) break;
      if (taken.stop && screen) {
        screen->suspend();
      } else if (taken.stop) {
        (void)raise(SIGSTOP);
      }
    }
  }
  return verdict();
}

}  // namespace

ExitCode watch(const ToolPaths& paths, const WatchOptions& options) {
  return Watcher(paths, options).run();
}

}  // namespace tally
