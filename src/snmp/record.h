// Where the blocks of the records come from. Private to the library.
//
// Every record is one block from malloc, the header first. The kinds that a poll makes and frees by
// the hundred (bindings, names, 64-bit counters) are not given back at once: each thread keeps a
// bounded number of freed ones and hands them out again. Without that, half of the time that a
// decoded packet takes goes into malloc and free. Under AddressSanitizer nothing is kept, so that
// it sees every use of a freed record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "snmp/values.h"

namespace tally {

// new_record returns a zeroed Record with `tail` bytes of uninitialised storage behind it, or null.
template <typename Record>
Record* new_record(std::size_t tail = 0) {
  void* const block = std::malloc(sizeof(Record) + tail);
  return block == nullptr ? nullptr : ::new (block) Record();
}

// The kept kinds. new_oid's sub-identifiers (0 to 128) are uninitialised. A free_ routine takes
// any block of at least the record's size, an OID of at least its length, from malloc.
VarBind* new_binding();
UInt64* new_counter();
OID* new_oid(std::int32_t length);
void free_binding(VarBind* binding);
void free_counter(UInt64* counter);
void free_oid(OID* oid);

// own_bytes and own_sids return the storage behind the header, where the bytes of an OctetString
// and the sub-identifiers of an OID normally are.
inline unsigned char* own_bytes(OctetString* string) {
  return reinterpret_cast<unsigned char*>(string + 1);
}

inline std::uint32_t* own_sids(OID* oid) {
  static_assert(sizeof(OID) % alignof(std::uint32_t) == 0);
  return reinterpret_cast<std::uint32_t*>(oid + 1);
}

}  // namespace tally
