// The commands of tallyctl.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "daemon/base/control_message.h"
#include "probes/tool_paths.h"
#include "records/collection_name.h"

namespace tally {

enum ExitCode : int {
  kDone = 0,
  kAbsent = 1,       // what was asked for is not there, is not what it should be, or failed
  kUsage = 2,        // the command line cannot be understood
  kUnreachable = 3,  // no daemon takes the message
};

// Options is what a command line says. Which command takes which of them, and what they mean,
// stands in the table of command_line.cpp; an empty text or 0 stands for one that was not given.
struct Options {
  std::vector<Collection> collections;  // none: every collection that has files
  bool json = false;
  bool csv = false;
  std::string file = "delta";
  std::string sort;  // empty: the type's main rate if rows are cut off, else none
  bool reversed = false;
  unsigned top = 0;
  std::vector<std::string> where;
  bool no_notes = false;
  double line_speed = 0;  // Mbit/s
  bool wide = false;
  bool si = false;
  bool resolve = false;
  std::string colour = "auto";
  unsigned wait = 5;
  unsigned every = 5;
  unsigned keep = 0;
  bool no_viewing = false;
  unsigned count = 0;
  unsigned seconds = 0;
  std::int32_t interval = 0;
  bool no_wait = false;
  std::string rrd_directory;
  std::string csv_directory;
  unsigned rows = 1000;
  std::string since = "1d";
  std::string key;
  std::string column;
  unsigned own_series = 50;
  std::string textfile;
  std::string listen;
};

// Each command does its work, writes data to standard output and words to standard error, and
// returns the exit code. Those that go on end early, with their result, on SIGINT and SIGTERM. They
// throw UsageError for options that make no sense for the collection.
ExitCode send(const ToolPaths& paths, MessageType type, const Options& options);
ExitCode stop(const ToolPaths& paths, const Options& options);
ExitCode view(const ToolPaths& paths, const Options& options);
ExitCode show(const ToolPaths& paths, const Options& options);
ExitCode watch(const ToolPaths& paths, const Options& options);
ExitCode status(const ToolPaths& paths, const Options& options);
ExitCode check(const ToolPaths& paths, const Options& options);
ExitCode record(const ToolPaths& paths, const Options& options);
ExitCode history(const ToolPaths& paths, const Options& options);
ExitCode metrics(const ToolPaths& paths, const Options& options);

// message_about makes a message about a collection, or about nothing.
ControlMessage message_about(MessageType type, const Collection& collection = {});

// tallyctl understands the command line and runs one command. The process ignores SIGPIPE
// afterwards.
int tallyctl(int argc, const char* const* argv, const ToolPaths& paths);

}  // namespace tally
