#include "support/allocations.h"

#include <cstdlib>
#include <new>

thread_local tally::Allocations tally::allocations;

void* operator new(std::size_t size) {
  if (++tally::allocations.count == tally::allocations.failing) throw std::bad_alloc();
  tally::allocations.bytes += size;
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
