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

class Keeper {
 public:
  Keeper() = default;
  Keeper(const Keeper&) = delete;
  Keeper& operator=(const Keeper&) = delete;

  // A record that is freed after this, by another destructor at the thread's end, goes to free().
  ~Keeper() {
    clear();
    room_ = 0;
  }

  void* take(Stack& stack, std::size_t size) {
    void* const block = stack.pop();
    if (block == nullptr) return std::malloc(size);
    ++room_;
    return block;
  }

  void put(Stack& stack, void* block) {
    if (room_ == 0) {
      std::free(block);
      return;
    }
    --room_;
    stack.push(block);
  }

  void clear() {
    clear(bindings);
    clear(counters);
    for (Stack& stack : oids) clear(stack);
  }

  Stack bindings;
  Stack counters;
  Stack oids[kKeptSubIds + 1];  // by length, which a block's room is never below

 private:
  void clear(Stack& stack) {
    while (void* const block = stack.pop()) {
      std::free(block);
      ++room_;
    }
  }

  int room_ = kMaxKept;
};

thread_local Keeper keeper;

}  // namespace

VarBind* new_binding() {
  void* const block = keeper.take(keeper.bindings, sizeof(VarBind));
  return block == nullptr ? nullptr : ::new (block) VarBind();
}

UInt64* new_counter() {
  void* const block = keeper.take(keeper.counters, sizeof(UInt64));
  return block == nullptr ? nullptr : ::new (block) UInt64();
}

OID* new_oid(std::int32_t length) {
  const std::size_t size = sizeof(OID) + static_cast<std::size_t>(length) * sizeof(std::uint32_t);
  void* const block =
      length <= kKeptSubIds ? keeper.take(keeper.oids[length], size) : std::malloc(size);
  if (block == nullptr) return nullptr;
  OID* const oid = ::new (block) OID();
  oid->length = length;
  oid->oid_ptr = own_sids(oid);
  return oid;
}

void free_binding(VarBind* binding) {
  keeper.put(keeper.bindings, binding);
}

void free_counter(UInt64* counter) {
  keeper.put(keeper.counters, counter);
}

void free_oid(OID* oid) {
  if (oid->length >= 0 && oid->length <= kKeptSubIds) {
    keeper.put(keeper.oids[oid->length], oid);
  } else {
    std::free(oid);
  }
}

void FreeKeptRecords() {
  keeper.clear();
}

}  // namespace tally
