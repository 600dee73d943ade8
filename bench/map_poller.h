// The plain poller: what a competent programmer writes without thinking of speed.
//
// One poll reads the previous sample into a std::map, fetches the agent's rows into a second one
// through the stock client, and writes the last and delta files with iostreams. It shares no code
// with the daemon, so its files are also the judge of the daemon's: both must agree byte by byte.
#pragma once

#include <cstdint>

#include "bench/sample_paths.h"
#include "bench/stock_client.h"

namespace tally::bench {

// map_poll takes one sample of a host table at the time `now` (seconds since the epoch) from the
// sample in `prev`. Throws when the agent or a file fails.
void map_poll(CLIENT& client, std::uint32_t index, const SamplePaths& paths, std::int32_t now);

}  // namespace tally::bench
