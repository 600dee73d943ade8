#include "minitapd/options.h"

#include <netinet/ether.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <stdexcept>

namespace minitapd {

namespace {

std::string control_error(const std::string& text) {
  try {
    (void)parse_control(text);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

std::optional<MacAddress> parse_address(const std::string& text) {
  ether_addr parsed{};
  if (::ether_aton_r(text.c_str(), &parsed) == nullptr) return std::nullopt;
  return std::to_array(parsed.ether_addr_octet);
}

std::string address_error(const std::string& text) {
  return parse_address(text) ? std::string() : "not a MAC address: " + text;
}

}  // namespace

ControlOption parse_control(const std::string& text) {
  const std::size_t first = text.find(':');
  const std::size_t second = first == std::string::npos ? first : text.find(':', first + 1);
  if (second == std::string::npos) {
    throw std::invalid_argument("wants TABLE:INDEX:OWNER, not " + text);
  }
  ControlOption option;
  const std::string name = text.substr(0, first);
  const auto shapes = table_shapes();
  const auto shape = std::ranges::find(shapes, name, &TableShape::name);
  if (shape == shapes.end()) throw std::invalid_argument("no table is called " + name);
  option.table = static_cast<Table>(shape - shapes.begin());
  const char* const end = text.data() + second;
  const auto [stop, error] = std::from_chars(text.data() + first + 1, end, option.index);
  if (error != std::errc{} || stop != end || option.index < 1 || option.index > 65535) {
    throw std::invalid_argument("a control index is a number from 1 to 65535: " + text);
  }
  option.owner = text.substr(second + 1);
  if (option.owner.size() > 255) throw std::invalid_argument("an owner has at most 255 bytes");
  return option;
}

Options parse_options(int argc, char** argv) {
  Options options;
  std::vector<std::string> control;
  CLI::App app{
      "A small RMON agent: counts the traffic of an interface, of a capture file, or "
      "serves the tables of a script, over ONC RPC.",
      "minitapd"};
  app.set_version_flag("--version", "minitapd " MINITAPD_VERSION);
  app.add_option("--listen", options.listen, "IPv4 address to serve on")->capture_default_str();
  app.add_option("--port", options.port, "TCP port; 0 takes any free one")->capture_default_str();
  auto* source = app.add_option_group("source", "Where the tables come from");
  auto* interface =
      source->add_option("--interface", options.interface, "Count the traffic of this interface");
  auto* file =
      source->add_option("--read", options.capture_file, "Count the frames of this capture file");
  source->add_option("--script", options.script, "Serve the tables of this JSON file");
  source->add_flag("--protocols", options.list_protocols, "Print the protocol directory and end");
  source->require_option(1);
  app.add_option("--capture-netns", options.capture_netns,
                 "Network namespace of the interface, such as /run/netns/NAME")
      ->needs(interface);
  app.add_flag("--print", options.print, "Print the tables of the file, as a script, and end")
      ->needs(file);
  app.add_flag("--promiscuous,!--no-promiscuous", options.promiscuous,
               "See frames for other stations, too (default)");
  app.add_option("--control", control,
                 "A control row, TABLE:INDEX:OWNER; repeatable. Default: one row of index 1 for "
                 "each table, owner monitor for vlan and prio, LocalMgr for the others")
      ->check(control_error);
  app.add_option("--max-rows", options.max_rows,
                 "Most rows of a table; the one that was not seen "
                 "for longest leaves")
      ->check(CLI::Range(2, 10'000'000))
      ->capture_default_str();
  std::string own_address;
  app.add_option("--own-address", own_address,
                 "MAC address whose frames count as sent. Default: that of the interface, and none "
                 "for a capture file")
      ->check(address_error);
  app.add_option("--max-frame", options.max_frame_octets,
                 "Frames of more octets, FCS included, are errors; 0 = no limit")
      ->capture_default_str();
  app.add_option("--trace", options.trace, "Append a line for every call to this file");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error) == 0 ? EXIT_SUCCESS : 2);
  }
  if (control.empty()) {
    for (std::size_t i = 0; i < kTableCount; ++i) {
      const auto table = static_cast<Table>(i);
      const bool own = table == Table::vlan || table == Table::prio;
      options.control.push_back({table, 1, own ? "monitor" : "LocalMgr"});
    }
  }
  if (!own_address.empty()) options.own_address = parse_address(own_address);
  for (const std::string& text : control) options.control.push_back(parse_control(text));
  return options;
}

}  // namespace minitapd
