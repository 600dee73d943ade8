#include "system_faults.h"

#include <cstdlib>
#include <set>

namespace tally {
namespace {

std::set<void*>& blocks() {
  static std::set<void*> live;
  return live;
}

}  // namespace

SystemFaults& faults() {
  static SystemFaults current;
  return current;
}

void reset_faults() {
  faults() = {};
}

std::size_t live_blocks() {
  return blocks().size();
}

}  // namespace tally

using tally::faults;

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) {
  if (++faults().mallocs == faults().failing_malloc) return nullptr;
  void* const block = __real_malloc(size);
  tally::blocks().insert(block);
  return block;
}

// A compiler may turn malloc and zeroing into this.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (++faults().mallocs == faults().failing_malloc) return nullptr;
  void* const block = __real_calloc(count, size);
  tally::blocks().insert(block);
  return block;
}

void __wrap_free(void* block) {
  tally::blocks().erase(block);
  __real_free(block);
}
}
