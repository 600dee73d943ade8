// The test program's operator new: counts, and fails on demand.
#pragma once

#include <cstddef>

namespace tally {

// What this thread requests from operator new; assign {} or {n} to begin anew.
struct Allocations {
  std::size_t failing = 0;  // the one that fails, counted from then on; 0 for none
  std::size_t count = 0;
  std::size_t bytes = 0;
};
extern thread_local Allocations allocations;

}  // namespace tally
