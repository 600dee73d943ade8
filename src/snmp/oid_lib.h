// Object identifiers made from other object identifiers and from table indexes.
//
// Each returns a new OID that the caller frees with FreeOID, or null (logs). Null arguments are
// empty. No result has more than 128 sub-identifiers.
#pragma once

#include <cstdint>

#include "snmp/values.h"

namespace tally {

// CatOID returns the sub-identifiers of `first` followed by those of `second`.
[[nodiscard]] OID* CatOID(const OID* first, const OID* second);

[[nodiscard]] OID* CloneOID(const OID* oid);

// MakeLenOID returns `length` followed by that many sub-identifiers: how a value of variable
// length stands in a table index (RFC 2578, section 7.7).
[[nodiscard]] OID* MakeLenOID(const std::uint32_t* sids, std::int32_t length);

// MakeOIDSubLen is its reverse: `sids` begins with a length, and the result holds the
// sub-identifiers that the length counts. Fewer than counted are refused; what follows is ignored.
[[nodiscard]] OID* MakeOIDSubLen(const std::uint32_t* sids, std::int32_t length);

// MakeOIDFromHex returns one sub-identifier for each byte of a hex text (in the forms of
// MakeOctetStringFromHex), as a MAC address stands in a table index.
[[nodiscard]] OID* MakeOIDFromHex(const char* text);

}  // namespace tally
