#include "system_faults.h"

#include <set>

namespace tally {

SystemFaults faults;

namespace {

std::set<void*>& blocks() {
  static std::set<void*> live;
  return live;
}

template <typename... Size>
void* allocate(void* (*real)(Size...), Size... size) {
  if (++faults.mallocs == faults.failing_malloc) return nullptr;
  return *blocks().insert(real(size...)).first;
}

}  // namespace

std::size_t live_blocks() {
  return blocks().size();
}

}  // namespace tally

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) {
  return tally::allocate(__real_malloc, size);
}

// A compiler may turn malloc and zeroing into this.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return tally::allocate(__real_calloc, count, size);
}

void __wrap_free(void* block) {
  tally::blocks().erase(block);
  __real_free(block);
}
}
