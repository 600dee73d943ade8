// The BER encoder: PDUs into bytes (ITU-T X.690, RFC 3417 section 8, RFC 1157).
//
// BuildPdu encodes a whole PDU. The writers below it encode single elements at a cursor and move it
// past what they wrote. They know no end: the caller provides as much room as the FindLen routine
// of the same kind says (findlen.h). All return 0, or -1 (logs). Not thread-safe on the same
// records.
#pragma once

#include <cstdint>

#include "snmp/values.h"

namespace tally {

// BuildPdu encodes the PDU into its `packlet`, freeing what was there. The PDU may be built again
// after a change. On failure `packlet` is null and nothing else has changed but the sizes in the
// bindings.
[[nodiscard]] int BuildPdu(Pdu* pdu);

// AddLen writes a length field of `lenlen` (1 to 4) bytes.
int AddLen(unsigned char** cursor, std::int16_t lenlen, std::int32_t length);

int AddInt(unsigned char** cursor, std::int16_t tag, std::int32_t value);
int AddUInt(unsigned char** cursor, std::int16_t tag, std::uint32_t value);
int AddUInt64(unsigned char** cursor, std::int16_t tag, const UInt64* value);
int AddNull(unsigned char** cursor, std::int16_t tag);
int AddOctetString(unsigned char** cursor, std::int16_t tag, const OctetString* string);

// AddOID needs at least two sub-identifiers, the first at most 2 and the second at most 39, also
// below 2.
int AddOID(unsigned char** cursor, std::int16_t tag, const OID* oid);

// AddVarBind writes every binding of a chain. It returns -1, without a message, when the sizes in a
// binding are not those of its name and value; FindLenVarBind sets `data_length`. The PDU is not
// used.
int AddVarBind(unsigned char** cursor, const VarBind* list, const Pdu* pdu);

}  // namespace tally
