// The command line of minitapd.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "minitapd/packet.h"
#include "minitapd/tables.h"

namespace minitapd {

// A control row that the agent starts with, as given by --control TABLE:INDEX:OWNER.
struct ControlOption {
  Table table = Table::host;
  std::int32_t index = 1;
  std::string owner;
};

struct Options {
  std::string listen = "127.0.0.1";
  std::uint16_t port = 9911;
  std::string interface;  // exactly one of these three is given
  std::string capture_file;
  std::string script;
  std::string capture_netns;  // with --interface: the network namespace that it is in
  bool promiscuous = true;
  std::vector<ControlOption> control;
  std::size_t max_rows = 65536;           // of every counted table
  std::uint32_t max_frame_octets = 0;     // longer frames are errors; 0 = no limit
  std::optional<MacAddress> own_address;  // whose frames count as sent
  std::string trace;
  bool list_protocols = false;
  bool print = false;  // with --read: print the tables and end
};

// parse_options reads the command line. It ends the process itself for --help, --version and
// errors, with the exit status that belongs to it.
Options parse_options(int argc, char** argv);

// parse_control reads TABLE:INDEX:OWNER. Throws std::invalid_argument.
ControlOption parse_control(const std::string& text);

}  // namespace minitapd
