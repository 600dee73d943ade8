// Sizes of encoded elements (ITU-T X.690, definite lengths).
//
// Each FindLen returns the size of the whole element in bytes: tag, length field and content. A
// size that does not fit 16 bits is refused with -1 (logs), like a null argument. Thread-safe.
#pragma once

#include <bit>
#include <cstdint>

#include "snmp/values.h"

namespace tally {

// DoLenLen returns the size of the length field for a content of `length` bytes: 1 to 4, or -1
// for more than 0xFFFFFF (logs).
[[nodiscard]] std::int16_t DoLenLen(std::int32_t length);

[[nodiscard]] std::int16_t FindLenInt(std::int32_t value);
[[nodiscard]] std::int16_t FindLenUInt(std::uint32_t value);
[[nodiscard]] std::int16_t FindLenUInt64(const UInt64* value);
[[nodiscard]] std::int16_t FindLenOctetString(const OctetString* string);

// FindLenOID counts one byte for the first two sub-identifiers, whatever they are and also when
// there are fewer: AddOID encodes only those that fit it.
[[nodiscard]] std::int16_t FindLenOID(const OID* oid);

// FindLenVarBind sets the `data_length` of every binding of a chain and returns the size of all
// of them together. It trusts the `name_size` and `value_size` that they have.
[[nodiscard]] std::int16_t FindLenVarBind(VarBind* list);

// Bytes of content. A two's complement number needs room for its sign bit above its significant
// bits, and an unsigned one needs a bit of 0 there, so both have one byte more than
// floor(significant bits / 8).
constexpr int int_content(std::int32_t value) {
  return std::bit_width(static_cast<std::uint32_t>(value < 0 ? ~value : value)) / 8 + 1;
}

constexpr int uint_content(std::uint64_t value) {
  return static_cast<int>(std::bit_width(value)) / 8 + 1;
}

// subid_size returns the bytes of a sub-identifier in base 128: 1 to 5.
constexpr int subid_size(std::uint32_t subid) {
  return (static_cast<int>(std::bit_width(subid | 1)) + 6) / 7;
}

// oid_content returns the bytes of an OID's content, or -1 for an OID (or null) that has more
// sub-identifiers than any length here can count.
[[nodiscard]] std::int32_t oid_content(const OID* oid);

}  // namespace tally
