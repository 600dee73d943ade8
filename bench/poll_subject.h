// The daemon's poll engine in this process: what the benchmarks are about.
//
// The engine is the daemon's own, linked in; only the places differ: the agent's port and the
// paths of the files are given. Nothing of this is thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bench/sample_paths.h"
#include "files/collection_ops.h"

namespace tally::bench {

// host_records returns rows 0 to count - 1 of the canned host table as the daemon's 62-byte
// records, one behind the other.
std::vector<unsigned char> host_records(std::uint32_t count, std::uint32_t epoch);

// write_sample writes a sample file of a collection type with these records that was taken at
// `time`.
void write_sample(const std::string& path, std::uint32_t type,
                  std::span<const unsigned char> records, std::int32_t time);

// make_prev turns the last sample into the previous one, taken `seconds` ago, so that polls without
// a pause between them have an interval all the same.
void make_prev(const SamplePaths& paths, std::int32_t seconds);

// PolledAgent is a table of a canned agent at 127.0.0.1:port, polled as the daemon does.
class PolledAgent {
 public:
  // Throws when the agent is not there.
  PolledAgent(std::uint16_t port, std::uint32_t type, std::uint32_t control_index);
  ~PolledAgent();

  // poll takes one sample, the daemon's way. Throws when it fails.
  void poll(const SamplePaths& paths);

 private:
  std::unique_ptr<Agent> agent_;
  std::uint32_t type_;
  std::uint32_t index_;
};

// merge_records runs the merge engine with records that lie in memory as the agent's rows. Throws
// when it fails.
void merge_records(std::span<const unsigned char> records, const SamplePaths& paths);

}  // namespace tally::bench
