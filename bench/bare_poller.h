// The bare program: the least that a poll can cost on this machine.
//
// The same bytes over a raw socket and the same files, with the tables wired in and no library, no
// checks, no second thought: what the daemon's poll can come close to and not beat. It shares no
// code with the daemon, so it judges the daemon's files, too.
#pragma once

#include <cstdint>
#include <string>

#include "bench/sample_table.h"

namespace tally::bench {

// The three files of one contender's collection.
struct SamplePaths {
  std::string last;
  std::string prev;
  std::string delta;
};

// connect_raw returns a socket that is connected to the agent. Throws when there is none.
int connect_raw(std::uint16_t port);

// bare_poll takes one sample at the time `now` (seconds since the epoch) from the one in `prev`.
// Throws when the agent or a file fails.
void bare_poll(int connection, TableKind kind, std::uint32_t index, const SamplePaths& paths,
               std::int32_t now);

}  // namespace tally::bench
