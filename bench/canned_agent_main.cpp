// canned_agent: the canned agent as a program, for the daemon. Prints "listening" when it is ready
// and runs until it is killed.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "bench/canned_agent.h"
#include "bench/measure.h"

int main(int argc, char** argv) try {
  std::uint32_t rows = 100'000;
  CLI::App app("Serves a canned host table of control index 1 over ONC RPC on 127.0.0.1:9911.");
  app.add_option("--rows", rows, "Rows of the table")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  tally::bench::SampleTable table(tally::bench::TableKind::host, 1, rows);
  const int listener = tally::bench::serving_socket(SOCK_STREAM, 9911);
  std::puts("listening");
  std::fflush(stdout);
  tally::bench::serve_table(listener, table);
} catch (const std::exception& error) {
  std::fprintf(stderr, "canned_agent: %s\n", error.what());
  return 1;
}
