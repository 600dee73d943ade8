// The test program's operator new: counts, and fails on demand.
#pragma once

#include <cstddef>

namespace tally {

struct Allocations {
  std::size_t count = 0;
  std::size_t bytes = 0;
};

// allocations returns what this thread has requested from operator new so far.
Allocations allocations();

// FailingAllocation makes one allocation of this thread fail: the n-th from now, where 0 is the
// next.
class FailingAllocation {
 public:
  explicit FailingAllocation(std::size_t after);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
};

}  // namespace tally
