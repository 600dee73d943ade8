// How the records are allocated: one block from malloc, the header first. Private to the library.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "snmp/values.h"

namespace tally {

// new_record returns a zeroed Record with `tail` bytes of uninitialised storage behind it, or null.
template <typename Record>
Record* new_record(std::size_t tail = 0) {
  void* const block = std::malloc(sizeof(Record) + tail);
  return block == nullptr ? nullptr : ::new (block) Record();
}

// own_bytes and own_sids return the storage behind the header, where the bytes of an OctetString
// and the sub-identifiers of an OID normally are.
inline unsigned char* own_bytes(OctetString* string) {
  return reinterpret_cast<unsigned char*>(string + 1);
}

inline std::uint32_t* own_sids(OID* oid) {
  static_assert(sizeof(OID) % alignof(std::uint32_t) == 0);
  return reinterpret_cast<std::uint32_t*>(oid + 1);
}

// new_oid returns an OID with `length` (0 to 128) uninitialised sub-identifiers, or null.
inline OID* new_oid(std::int32_t length) {
  OID* const oid = new_record<OID>(static_cast<std::size_t>(length) * sizeof(std::uint32_t));
  if (oid == nullptr) return nullptr;
  oid->length = length;
  oid->oid_ptr = own_sids(oid);
  return oid;
}

}  // namespace tally
