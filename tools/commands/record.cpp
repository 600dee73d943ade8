// record: follows the delta files and keeps their rates.
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "history/history.h"
#include "probes/daemon_probe.h"
#include "probes/settings_probe.h"
#include "records/collection_files.h"
#include "views/view.h"

namespace tally {
namespace {

// A file that is being written when its event comes will have another event soon.
constexpr std::chrono::milliseconds kPatience{500};

// Between two looks at everything where the system does not tell of changes.
constexpr std::chrono::milliseconds kTick{1000};

// Recorder takes each delta file once.
class Recorder {
 public:
  Recorder(const ToolPaths& paths, const Options& options, std::unique_ptr<History> history)
      : paths_(paths), options_(options), history_(std::move(history)) {}

  // take keeps the delta file of a collection if it is wanted and newer than what is kept.
  void take(const Collection& collection);

  // take_all looks at every collection that has files.
  void take_all();

  bool failed() const { return failed_; }

 private:
  struct Known {
    std::int64_t end = 0;
    std::optional<FileStamp> stamp;
    std::string trouble;
  };

  bool wanted(const Collection& collection) const {
    const auto& list = options_.collections;
    return list.empty() || std::find(list.begin(), list.end(), collection) != list.end();
  }

  const ToolPaths& paths_;
  const Options& options_;
  std::unique_ptr<History> history_;
  std::map<std::pair<std::uint32_t, std::uint32_t>, Known> known_;
  bool failed_ = false;
};

void Recorder::take(const Collection& collection) {
  if (!wanted(collection)) return;
  const auto [place, is_new] = known_.try_emplace({collection.type, collection.index});
  Known& known = place->second;
  if (is_new) known.end = history_->last_end(collection);
  const auto stamp = stamp_of(file_path(paths_.data_directory, collection, FileKind::delta));
  if (!stamp || stamp == known.stamp) return;
  const OpenFiles files =
      open_files(paths_.data_directory, collection, FileKind::delta, Samples::both, kPatience);
  if (!files.main.good()) return;  // there will be another event
  known.stamp = files.main.stamp;
  const FileHeader& header = files.main.header;
  // After the clock went back there is no interval to keep rates for.
  if (header.sample_time <= known.end || header.interval <= 0) return;
  const RecordLayout& layout = *files.main.layout;
  const AnnotateOptions annotate;
  const LoadedView loaded = load_view(files, RowFilter(layout, {}),
                                      order_for(layout, "", false, options_.top), &annotate);
  std::string trouble =
      history_->keep({collection, layout, header.sample_time, header.interval, loaded.view.rows});
  known.end = header.sample_time;
  failed_ = failed_ || !trouble.empty();
  if (!trouble.empty() && trouble != known.trouble) {
    complain("{}: {}", title(collection), trouble);
  }
  known.trouble = std::move(trouble);
}

void Recorder::take_all() {
  std::string error;
  for (const Collection& collection : present_collections(paths_.data_directory, error)) {
    take(collection);
  }
}

}  // namespace

ExitCode record(const ToolPaths& paths, const Options& options) {
  const bool csv = !options.csv_directory.empty();
  if (!csv && options.rrd_directory.empty()) {
    throw UsageError("record needs one of --rrd DIR and --csv DIR");
  }
  const std::string& directory = csv ? options.csv_directory : options.rrd_directory;
  if (mkdir(directory.c_str(), 0755) == 0) {
    complain("made the directory {}", directory);
  } else if (errno != EEXIST) {
    complain("cannot make {}: {}; name a directory that can be written to", directory,
             std::strerror(errno));
    return kAbsent;
  }
  if (access(directory.c_str(), W_OK | X_OK) != 0 ||
      access(paths.data_directory.c_str(), R_OK | X_OK) != 0) {
    const int error = errno;
    const bool own = access(directory.c_str(), W_OK | X_OK) != 0;
    complain("{}: {}; {}", own ? directory : paths.data_directory, std::strerror(error),
             own ? "name a directory that can be written to"
                 : "it must exist and be readable: see 'tallyctl check'");
    return kAbsent;
  }
  const std::int32_t step = std::max(planned_interval(paths.preferences).value_or(60), 1);
  Recorder recorder(
      paths, options,
      csv ? make_csv_history(directory) : make_rrd_history(directory, step, options.rows));
  Signals signals;
  const FileEvents events(paths.data_directory);  // before the first look, so that nothing is lost
  const Deadline deadline{std::chrono::seconds(options.seconds)};
  recorder.take_all();
  while (!deadline.over()) {
    wait_for({signals.fd(), events.fd()}, kTick);
    if (signals.ended()) break;
    const FileEvents::Changes changes = events.take();
    if (changes.any_file || events.fd() < 0) recorder.take_all();
    for (const std::string& name : changes.names) {
      const auto file = collection_of_file(name);
      if (file && file->kind == FileKind::delta) recorder.take({file->type, file->index});
    }
  }
  return recorder.failed() ? kAbsent : kDone;
}

}  // namespace tally
