// watch: several collections, shown again at each new delta file; on a terminal also all of them at
// a glance, and each by itself from there.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "commands/watcher.h"
#include "console/output.h"
#include "console/wait.h"
#include "pipe/pipe_writer.h"

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

}  // namespace

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

ExitCode watch(const ToolPaths& paths, const Options& options) {
  return Watcher(paths, options).run();
}

}  // namespace tally
