// The commands of tallyctl.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/base/control_message.h"
#include "files/file_format.h"
#include "metrics/metrics_page.h"
#include "probes/tool_paths.h"
#include "records/collection_name.h"

namespace tally {

enum ExitCode : int {
  kDone = 0,
  kAbsent = 1,       // what was asked for is not there, is not what it should be, or failed
  kUsage = 2,        // the command line cannot be understood
  kUnreachable = 3,  // no daemon takes the message
};

enum class Format { table, json, csv };

// ViewOptions says which rows are shown, and how.
struct ViewOptions {
  Format format = Format::table;
  FileKind file = FileKind::delta;
  std::string sort;  // column name; empty: the type's main rate if rows are cut off, else none
  bool reversed = false;
  std::size_t top = 0;  // 0: all rows
  std::vector<std::string> where;
  bool notes = true;
  double line_speed = 0;  // bits per second of the source of an agent's rows; 0: unknown
  bool wide = false;      // the table with all columns, by the names of the MIB objects
  bool si = false;        // its values rounded
  bool resolve = false;   // ask DNS for names of addresses
  bool no_colour = false;
};

struct WatchOptions {
  std::vector<Collection> collections;
  ViewOptions view;
  bool viewing = true;  // tell the daemon that somebody looks
  std::chrono::seconds viewing_period{5};
  std::optional<unsigned> count;                 // end when the rates of each were shown so often
  std::optional<std::chrono::seconds> duration;  // end after this time
};

struct RecordOptions {
  std::vector<Collection> collections;  // none: every collection that has files
  std::string rrd_directory;            // one of the two
  std::string csv_directory;
  std::size_t top = 0;      // rows of each collection at most, by its main rate; 0: all
  std::size_t rows = 1000;  // databases of each collection at most
  std::optional<std::chrono::seconds> duration;
};

struct HistoryOptions {
  Collection collection;
  std::string directory;  // empty: the recording unit's
  Format format = Format::table;
  std::string key;      // one row: its key columns, separated by blanks; empty: all rows
  std::string column;   // of all rows, which rate; empty: the type's main rate
  std::size_t top = 0;  // the busiest rows only; 0: all
  std::chrono::seconds since{86'400};  // how far back
};

struct MetricsOptions {
  MetricsScope scope;
  std::string textfile;  // written once; empty: standard output
  std::string listen;    // ADDR:PORT to serve at; empty: not at all
};

// Each command does its work, writes data to standard output and words to standard error, and
// returns the exit code. Those that go on end early, with their result, on SIGINT and SIGTERM. They
// throw UsageError for options that make no sense for the collection.
ExitCode send(const ToolPaths& paths, const std::vector<ControlMessage>& messages);
ExitCode stop(const ToolPaths& paths, bool wait);
ExitCode keep_viewing(const ToolPaths& paths, const std::vector<Collection>& collections,
                      std::chrono::seconds period);
ExitCode show(const ToolPaths& paths, const Collection& collection, const ViewOptions& options,
              std::chrono::milliseconds patience);
ExitCode watch(const ToolPaths& paths, const WatchOptions& options);
ExitCode status(const ToolPaths& paths, bool json);
ExitCode check(const ToolPaths& paths, bool json);
ExitCode record(const ToolPaths& paths, const RecordOptions& options);
ExitCode history(const HistoryOptions& options);
ExitCode metrics(const ToolPaths& paths, const MetricsOptions& options);

// tallyctl understands the command line and runs one command. The process ignores SIGPIPE
// afterwards.
int tallyctl(int argc, const char* const* argv, const ToolPaths& paths);

}  // namespace tally
