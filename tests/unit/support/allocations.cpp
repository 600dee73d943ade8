#include "support/allocations.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

thread_local tally::Allocations so_far;
thread_local std::size_t fails_at = kNever;

}  // namespace

void* operator new(std::size_t size) {
  if (so_far.count++ == fails_at) throw std::bad_alloc();
  so_far.bytes += size;
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
// The sanitizers have their own version of this one, which would not get here.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

namespace tally {

Allocations allocations() {
  return so_far;
}

FailingAllocation::FailingAllocation(std::size_t after) {
  fails_at = so_far.count + after;
}

FailingAllocation::~FailingAllocation() {
  fails_at = kNever;
}

}  // namespace tally
