#include "snmp/record.h"

#include "snmp/free_lib.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TALLY_KEEP_NOTHING
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TALLY_KEEP_NOTHING
#endif

namespace tally {
namespace {

#ifdef TALLY_KEEP_NOTHING
constexpr int kMaxKept = 0;
#else
constexpr int kMaxKept = 512;  // blocks of a thread, at most 150 bytes each
#endif
constexpr std::int32_t kKeptSubIds = 32;  // longer OIDs are rare

// Freed blocks of one size, linked through their first word.
struct Stack {
  void* top = nullptr;

  void push(void* block) {
    *static_cast<void**>(block) = top;
    top = block;
  }

  void* pop() {
    void* const block = top;
    if (block != nullptr) top = *static_cast<void**>(block);
    return block;
  }
};

// What a thread keeps. It has no destructor, for it must still be good when another destructor
// frees a record at the thread's end, after KeptEnd has run.
struct Kept {
  Stack bindings;
  Stack counters;
  Stack oids[kKeptSubIds + 1];  // by length, which a block's room is never below
  int room = 0;                 // blocks that may be kept beside those that are
  bool opened = false;          // false until the thread frees its first record
};

constinit thread_local Kept kept;

void free_all(Stack& stack) {
  while (void* const block = stack.pop()) {
    std::free(block);
    ++kept.room;
  }
}

void free_kept() {
  free_all(kept.bindings);
  free_all(kept.counters);
  for (Stack& stack : kept.oids) free_all(stack);
}

// Gives everything back at the thread's end; what is freed after that is not kept.
struct KeptEnd {
  KeptEnd() = default;
  KeptEnd(const KeptEnd&) = delete;
  KeptEnd& operator=(const KeptEnd&) = delete;
  ~KeptEnd() {
    free_kept();
    kept.room = 0;
  }
};

void* take(Stack& stack, std::size_t size) {
  void* const block = stack.pop();
  if (block == nullptr) return std::malloc(size);
  ++kept.room;
  return block;
}

void put(Stack& stack, void* block) {
  if (kept.room == 0 && !kept.opened) {
    thread_local KeptEnd end;  // made here, so that it ends with the thread
    kept.opened = true;
    kept.room = kMaxKept;
  }
  if (kept.room == 0) {
    std::free(block);
    return;
  }
  --kept.room;
  stack.push(block);
}

}  // namespace

VarBind* new_binding() {
  void* const block = take(kept.bindings, sizeof(VarBind));
  return block == nullptr ? nullptr : ::new (block) VarBind();
}

UInt64* new_counter() {
  void* const block = take(kept.counters, sizeof(UInt64));
  return block == nullptr ? nullptr : ::new (block) UInt64();
}

OID* new_oid(std::int32_t length) {
  const std::size_t size = sizeof(OID) + static_cast<std::size_t>(length) * sizeof(std::uint32_t);
  void* const block = length <= kKeptSubIds ? take(kept.oids[length], size) : std::malloc(size);
  if (block == nullptr) return nullptr;
  OID* const oid = ::new (block) OID();
  oid->length = length;
  oid->oid_ptr = own_sids(oid);
  return oid;
}

void free_binding(VarBind* binding) {
  put(kept.bindings, binding);
}

void free_counter(UInt64* counter) {
  put(kept.counters, counter);
}

void free_oid(OID* oid) {
  if (oid->length >= 0 && oid->length <= kKeptSubIds) {
    put(kept.oids[oid->length], oid);
  } else {
    std::free(oid);
  }
}

void FreeKeptRecords() {
  free_kept();
}

}  // namespace tally
