// minitapd: a small RMON agent. See minitapd(8).
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "minitapd/options.h"
#include "minitapd/scripted_source.h"
#include "minitapd/server.h"

namespace {

using namespace minitapd;

void start(Server& server, const Options& options) {
  if (!options.trace.empty()) server.trace_to(options.trace);
  server.listen(options.listen, options.port);
  // Whoever started us may wait for this line.
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

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = parse_options(argc, argv);
    if (!options.script.empty()) serve_script(options);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "minitapd: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
