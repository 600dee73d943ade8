// The blocks of the records. Private to the library.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "snmp/values.h"

namespace tally {

// new_record returns a zeroed Record with `tail` bytes of uninitialised storage after it, or null.
template <typename Record>
Record* new_record(std::size_t tail = 0) {
  void* const block = std::malloc(sizeof(Record) + tail);
  return block == nullptr ? nullptr : ::new (block) Record();
}

// own_bytes and own_sids return the storage after the header, where the bytes of an OctetString and
// the sub-identifiers of an OID normally are.
inline unsigned char* own_bytes(OctetString* string) {
  return reinterpret_cast<unsigned char*>(string + 1);
}

inline std::uint32_t* own_sids(OID* oid) {
  static_assert(sizeof(OID) % alignof(std::uint32_t) == 0);
  return reinterpret_cast<std::uint32_t*>(oid + 1);
}

// new_decoded_binding returns a zeroed binding whose name is part of its block, or null. With
// `octets` of 0 or more, `os_value` is a string of that length in the block, its bytes
// uninitialised. Decoding spends most of its time in malloc and free: one of each is enough.
inline VarBind* new_decoded_binding(const std::uint32_t* sids, std::int32_t count,
                                    std::int32_t octets) {
  struct Block {
    VarBind binding;
    OID name;
  };
  static_assert(sizeof(Block) % alignof(OctetString) == 0);
  const std::int32_t aligned = count + count % 2;  // sub-identifiers, for the string after them
  const std::size_t string_size =
      octets < 0 ? 0 : sizeof(OctetString) + static_cast<std::size_t>(octets);
  auto* const block =
      new_record<Block>(static_cast<std::size_t>(aligned) * sizeof *sids + string_size);
  if (block == nullptr) return nullptr;
  block->name = {count, own_sids(&block->name), count, true};
  std::copy_n(sids, count, block->name.oid_ptr);
  block->binding.name = &block->name;
  if (octets >= 0) {
    auto* const string = ::new (static_cast<void*>(block->name.oid_ptr + aligned)) OctetString();
    *string = {own_bytes(string), octets, octets, true};
    block->binding.value.os_value = string;
  }
  return &block->binding;
}

}  // namespace tally
