// status: is the daemon there, and how old is what it has written?
#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "daemon/base/collection_types.h"
#include "pipe/pipe_writer.h"
#include "probes/daemon_probe.h"
#include "probes/settings_probe.h"
#include "records/annotate.h"
#include "records/cell_text.h"

namespace tally {
namespace {

using Json = nlohmann::ordered_json;

// Overview is what the files of one collection say without their rows.
struct Overview {
  Collection collection;
  std::string states[3];  // by kFileKinds: "good" or what is the matter
  std::optional<std::int64_t> age;
  std::optional<std::int32_t> interval;
  std::optional<std::uint64_t> rates;  // rows of the delta file
  std::optional<std::uint64_t> rows;   // of the last sample
  std::vector<FileNote> notes;
};

// Interval is what the preferences plan, and what the files show instead.
struct Interval {
  std::optional<std::int32_t> planned;
  std::optional<std::int32_t> seen;
};

Overview look_at(const ToolPaths& paths, const Collection& collection,
                 const AnnotateOptions& annotate) {
  Overview overview;
  overview.collection = collection;
  const std::int64_t now = std::time(nullptr);
  for (std::size_t i = 0; i < std::size(kFileKinds); ++i) {
    if (record_layout(collection.type, kFileKinds[i]) == nullptr) {
      overview.states[i] = "none";
      continue;
    }
    const OpenFiles files =
        open_files(paths.data_directory, collection, kFileKinds[i],
                   kFileKinds[i] == FileKind::delta ? Samples::both : Samples::none,
                   std::chrono::milliseconds{200});
    overview.states[i] = file_state_code(files.main.state);
    if (!files.main.good()) continue;
    if (!overview.age) overview.age = now - files.main.header.sample_time;
    if (kFileKinds[i] == FileKind::last) overview.rows = files.main.count();
    if (kFileKinds[i] != FileKind::delta) continue;
    overview.interval = files.main.header.interval;
    overview.rates = files.main.count();
    overview.notes = file_notes(files, annotate);
  }
  return overview;
}

template <class Value>
std::string or_dash(const std::optional<Value>& value) {
  return value ? fmt::to_string(*value) : "-";
}

std::string as_text(const DaemonState& daemon, const PipeAnswer& pipe, const Interval& interval,
                    const ToolPaths& paths, const std::vector<Overview>& all) {
  std::string text = fmt::format(
      "daemon    {}\npipe      {}: {}\ninterval  {} s planned{}\n\n",
      daemon.running ? fmt::format("running, process {}", or_dash(daemon.pid)) : "not running",
      paths.control_pipe, pipe.word, or_dash(interval.planned),
      interval.seen ? fmt::format(", {} s seen", *interval.seen) : "");
  std::size_t width = 10;
  for (const Overview& each : all) width = std::max(width, title(each.collection).size());
  text +=
      fmt::format("{:<{}}  {:<13}  {:<13}  {:<13}  {:>8}  {:>8}  {:>8}  {:>8}  notes\n",
                  "collection", width, "delta", "last", "prev", "interval", "age", "rates", "rows");
  for (const Overview& each : all) {
    std::string notes;
    for (const FileNote& note : each.notes) notes += fmt::format(" {}", note.code);
    std::string line = fmt::format(
        "{:<{}}  {:<13}  {:<13}  {:<13}  {:>8}  {:>8}  {:>8}  {:>8} {}", title(each.collection),
        width, each.states[0], each.states[1], each.states[2], or_dash(each.interval),
        each.age ? duration_text(*each.age) : "-", or_dash(each.rates), or_dash(each.rows), notes);
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
  }
  if (all.empty()) text += "no collection has files; 'tallyctl create host 1' starts one\n";
  return text;
}

Json as_json(const DaemonState& daemon, const PipeAnswer& pipe, const Interval& interval,
             const ToolPaths& paths, const std::vector<Overview>& all) {
  const auto or_null = [](const auto& value) { return value ? Json(*value) : Json(nullptr); };
  Json list = Json::array();
  for (const Overview& each : all) {
    Json notes = Json::array();
    for (const FileNote& note : each.notes) {
      notes.push_back({{"code", note.code}, {"text", note.text}});
    }
    list.push_back({{"collection", title(each.collection)},
                    {"type", type_stem(each.collection.type)},
                    {"index", each.collection.index},
                    {"delta", each.states[0]},
                    {"last", each.states[1]},
                    {"prev", each.states[2]},
                    {"interval", or_null(each.interval)},
                    {"age", or_null(each.age)},
                    {"rates", or_null(each.rates)},
                    {"rows", or_null(each.rows)},
                    {"notes", notes}});
  }
  return {{"daemon", {{"running", daemon.running}, {"pid", or_null(daemon.pid)}}},
          {"pipe", {{"path", paths.control_pipe}, {"state", pipe.word}}},
          {"planned_interval", or_null(interval.planned)},
          {"seen_interval", or_null(interval.seen)},
          {"collections", list}};
}

}  // namespace

ExitCode status(const ToolPaths& paths, const Options& options) {
  const DaemonState daemon = probe_daemon(paths.pid_file);
  const PipeAnswer pipe = probe_pipe(paths.control_pipe);
  const AnnotateOptions annotate = annotate_options(paths);
  const Interval interval{annotate.planned_interval,
                          seen_interval(annotate.others, std::time(nullptr))};
  std::string error;
  std::vector<Overview> all;
  for (const Collection& collection : present_collections(paths.data_directory, error)) {
    all.push_back(look_at(paths, collection, annotate));
  }
  if (!error.empty()) {
    complain("cannot list {}: {}; the daemon does not make it, create it", paths.data_directory,
             error);
  }
  Output output(STDOUT_FILENO);
  output << (options.json ? as_json(daemon, pipe, interval, paths, all).dump(2) + '\n'
                          : as_text(daemon, pipe, interval, paths, all));
  if (!finish(output) || !error.empty()) return kAbsent;
  return daemon.running && pipe.state == PipeState::read ? kDone : kUnreachable;
}

}  // namespace tally
