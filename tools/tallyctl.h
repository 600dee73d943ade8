// The commands of tallyctl.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "collection_name.h"
#include "pipe_writer.h"
#include "table_text.h"
#include "terminal.h"

namespace tally {

enum ExitCode : int {
  kDone = 0,
  kAbsent = 1,       // what was asked for is not there, or is not what it should be
  kUsage = 2,        // the command line cannot be understood
  kUnreachable = 3,  // no daemon takes the message
};

// Where the daemon's files are.
struct ToolPaths {
  std::string data_directory;
  std::string control_pipe;
};

// DisplayOptions says how tables are shown.
struct DisplayOptions {
  bool si = false;
  bool no_colour = false;
  std::string sort;     // column name; empty: the type's main rate if rows are cut off, else none
  std::size_t top = 0;  // 0: all rows
};

// style_for turns what was asked for into the style of a table of one type on this terminal, of any
// width. Throws UsageError when the type has no column of the name to sort by.
TableStyle style_for(std::uint32_t type, const DisplayOptions& options, const Terminal& terminal);

struct ShowOptions {
  Collection collection;
  DisplayOptions display;
  std::chrono::milliseconds patience;  // for a file that is being written
};

struct WatchOptions {
  std::vector<Collection> collections;
  DisplayOptions display;
  bool viewing = true;  // tell the daemon that somebody looks
  std::chrono::seconds viewing_period{5};
  std::optional<unsigned> count;                 // end when the rates of each were shown so often
  std::optional<std::chrono::seconds> duration;  // end after this time
};

// Each command does its work, writes data to standard output and words to standard error, and
// returns the exit code. keep_viewing and watch end early on SIGINT and SIGTERM.
ExitCode send(const ToolPaths& paths, const ControlMessage& message);
ExitCode keep_viewing(const ToolPaths& paths, const ControlMessage& message,
                      std::chrono::seconds period);
ExitCode show(const ToolPaths& paths, const ShowOptions& options);
ExitCode watch(const ToolPaths& paths, const WatchOptions& options);

// tallyctl understands the command line and runs one command. The process ignores SIGPIPE
// afterwards.
int tallyctl(int argc, const char* const* argv, const ToolPaths& paths);

}  // namespace tally
