// Where the appliance keeps what the commands look at.
#pragma once

#include <string>

namespace tally {

struct ToolPaths {
  std::string data_directory;
  std::string control_pipe;
  std::string pid_file;
  std::string preferences;         // gdbm database with the interval
  std::string nmp_settings;        // gdbm database of the supervisor
  std::string appliance_settings;  // text file with the target id
};

// appliance_paths returns those that were settled when tallyctl was built.
ToolPaths appliance_paths();

}  // namespace tally
