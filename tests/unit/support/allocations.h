// The test program's operator new: it counts, and it fails when it is told to.
#pragma once

#include <cstddef>

namespace tally {

struct Allocations {
  std::size_t count = 0;
  std::size_t bytes = 0;
};

// allocations returns what this thread has asked of operator new so far.
Allocations allocations();

// FailingAllocation lets one allocation of this thread fail: the n-th from now on, 0 being the very
// next one.
class FailingAllocation {
 public:
  explicit FailingAllocation(std::size_t after);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
};

}  // namespace tally
