// Sizes of encoded elements (ITU-T X.690, definite lengths).
//
// Each FindLen returns the size of the whole element in bytes: tag, length field and content. A
// size that does not fit 16 bits is refused with -1 (logs), like a null argument. Thread-safe.
#pragma once

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

// FindLenOID counts one byte for the first two sub-identifiers, even when there are fewer: AddOID
// refuses those that do not fit one byte.
[[nodiscard]] std::int16_t FindLenOID(const OID* oid);

// FindLenVarBind sets the `data_length` of every binding of a chain and returns the size of all
// of them together. It trusts the `name_size` and `value_size` that they have.
[[nodiscard]] std::int16_t FindLenVarBind(VarBind* list);

}  // namespace tally
