// minitapd: a small RMON agent. See minitapd(8).
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "minitapd/capture.h"
#include "minitapd/live_source.h"
#include "minitapd/options.h"
#include "minitapd/protocol_directory.h"
#include "minitapd/script_writer.h"
#include "minitapd/scripted_source.h"
#include "minitapd/server.h"

namespace {

using namespace minitapd;

void start(Server& server, const Options& options) {
  if (!options.trace.empty()) server.trace_to(options.trace);
  server.listen(options.listen, options.port);
  // Whoever started the agent may wait for this line.
  (void)std::printf("minitapd: serving %s port %u\n", options.listen.c_str(),
                    unsigned{server.port()});
  (void)std::fflush(stdout);
}

void serve_script(const Options& options) {
  ScriptedSource source(options.script);
  Server server(
      source,
      {.before_call = [&source] { source.refresh(); },
       .find_fault = [&source](std::uint32_t procedure) { return source.next_fault(procedure); }});
  start(server, options);
  server.run({.poll_fd = [] { return -1; }, .work = [] {}});
}

// print_protocols writes the form of protocols(5), which tallyctl reads.
void print_protocols() {
  for (const Protocol& protocol : protocols()) {
    (void)std::printf("%-28s %3u  # layer %u\n", path_of(protocol).c_str(),
                      unsigned{protocol.local_index}, static_cast<unsigned>(protocol.layer));
  }
}

void serve_traffic(const Options& options) {
  const bool live = !options.interface.empty();
  LiveSource source({.max_rows = options.max_rows,
                     .max_frame_octets = options.max_frame_octets,
                     .descr = "minitapd on " + (live ? options.interface : options.capture_file),
                     .own_address = options.own_address});
  for (const ControlOption& row : options.control) {
    source.add_control(row.table, row.index, row.owner);
  }
  const FrameSink sink = [&source](std::span<const std::uint8_t> bytes, std::uint32_t length) {
    source.count_frame(bytes, length);
  };
  Server server(source, {});
  if (!live) {
    read_capture_file(options.capture_file, sink);
    if (options.print) {
      if (!write_script(source, stdout)) throw std::runtime_error("standard output takes no more");
      return;
    }
    start(server, options);
    server.run({.poll_fd = [] { return -1; }, .work = [] {}});
    return;
  }
  Capture capture({.interface = options.interface,
                   .netns = options.capture_netns,
                   .promiscuous = options.promiscuous,
                   .opened =
                       [&](const MacAddress& own) {
                         source.set_own_address(options.own_address.value_or(own));
                       }},
                  sink);
  source.watch_capture([&capture] {
    return CaptureState{.interface_index = capture.interface_index(),
                        .dropped_frames = capture.dropped_frames()};
  });
  start(server, options);
  server.run({.poll_fd = [&capture] { return capture.poll_fd(); },
              .work = [&capture] { capture.work(); }});
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = parse_options(argc, argv);
    if (options.list_protocols) {
      print_protocols();
    } else if (!options.script.empty()) {
      serve_script(options);
    } else {
      serve_traffic(options);
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "minitapd: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
