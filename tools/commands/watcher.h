// The state of watch: the collections and what is known of their files; of a screen also what is
// on show there.
#pragma once

#include <chrono>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "probes/settings_probe.h"
#include "views/overview.h"

namespace tally {

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

  // watch_screen.cpp:
  bool obey(int key);
  void type(int key);
  void seek(std::string text);
  void open(std::optional<Collection> collection);
  void move(std::ptrdiff_t lines);
  void sort(bool right);
  void reverse();
  void go_back();
  bool at_overview() const { return all_at_a_glance_ && !open_; }
  const Digest* selected() const {  // of the overview; null: it has no lines
    return listed_.empty() ? nullptr : listed_[std::min(cursor_.selected, listed_.size() - 1)];
  }
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
  std::chrono::steady_clock::time_point next_viewing_{};
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

}  // namespace tally
