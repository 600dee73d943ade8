// The bare program: the least that a poll can cost on this machine.
//
// The same bytes over a raw socket and the same files, with the tables wired in and no
// library, no checks, no second thought: what the daemon's poll can come close to and not beat.
#pragma once

#include <cstdint>

#include "bench/sample_paths.h"
#include "bench/sample_table.h"

namespace tally::bench {

// connect_raw returns a socket that is connected to the agent. Throws when it is not there.
int connect_raw(std::uint16_t port);

// bare_poll takes one sample of a table of any kind but pdist. Throws when the agent or a file
// fails.
void bare_poll(int connection, TableKind kind, std::uint32_t index, const SamplePaths& paths,
               std::int32_t now);

// copy_in_blocks reads a file and writes it to another in blocks of 8 KiB.
void copy_in_blocks(const std::string& from, const std::string& to);

}  // namespace tally::bench
