#include "system_faults.h"

namespace tally {

SystemFaults faults;

namespace {

std::size_t live = 0;

template <typename Block, typename... Arguments>
Block* allocate(Block* (*real)(Arguments...), Arguments... arguments) {
  if (++faults.mallocs == faults.failing_malloc) return nullptr;
  ++live;
  return real(arguments...);
}

}  // namespace

std::size_t live_blocks() {
  return live;
}

}  // namespace tally

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
char* __real_strdup(const char* text);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) {
  return tally::allocate(__real_malloc, size);
}

// A compiler may turn malloc and zeroing into this.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return tally::allocate(__real_calloc, count, size);
}

char* __wrap_strdup(const char* text) {
  return tally::allocate(__real_strdup, text);
}

void __wrap_free(void* block) {
  if (block != nullptr) --tally::live;
  __real_free(block);
}
}
