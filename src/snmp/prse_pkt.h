// The BER decoder: bytes from the network into PDUs and values (ITU-T X.690, RFC 3416, RFC 1157).
//
// ZnParsePdu decodes a whole PDU. The other parsers decode one element at a cursor and move it past
// what they read. `end` is one past the last byte; nothing there or beyond is ever read, even when
// the cursor lies beyond it, and an element that lacks bytes is refused as past the end of the
// packet. Any bytes are safe input, the time is linear in their number and nothing recurses.
//
// Records that are returned belong to the caller (free_lib.h). On failure a parser logs, has freed
// what it had made and leaves the cursor where reading stopped. Thread-safe as far as no log
// context is installed.
#pragma once

#include <cstdint>

#include "snmp/values.h"

namespace tally {

// ZnParsePdu decodes one PDU; bytes behind it are ignored. Returns it, or null.
//
// The lengths of the binding list and of each binding are read but not compared with anything:
// bindings are read up to the end of the PDU. An unknown value tag in a trap refuses the PDU. In
// any other PDU the value becomes a NULL, `error_status` 99 and `error_index` the binding's
// position.
[[nodiscard]] Pdu* ZnParsePdu(const unsigned char* bytes, std::int32_t length);

// ParseType reads a tag. Returns it, or -1 for a tag that SNMP does not have.
[[nodiscard]] int ParseType(const unsigned char** cursor, const unsigned char* end);

// ParseLength reads a length field of one byte or in the long form with one to four more, also
// where fewer would do. Returns the length, or -1 for the indefinite form and beyond 2^31 - 1.
[[nodiscard]] std::int32_t ParseLength(const unsigned char** cursor, const unsigned char* end);

// ParseSequence reads the header of a SEQUENCE and returns the length of its content, which is not
// compared with the end, or -1. ParseImplicitSequence does it for the tag that `type` holds.
// `type` receives the tag, or -1.
[[nodiscard]] std::int32_t ParseSequence(const unsigned char** cursor, const unsigned char* end,
                                         std::int16_t* type);
[[nodiscard]] std::int32_t ParseImplicitSequence(const unsigned char** cursor,
                                                 const unsigned char* end, std::int16_t* type);

// ParseInt reads an INTEGER of up to 4 bytes; one of none is 0. ParseUInt reads a Counter32,
// Gauge32 or TimeTicks of 1 to 4 bytes, or 5 of which the first is 0. Both return 0 on failure:
// `type` tells, which receives the tag or -1.
[[nodiscard]] std::int32_t ParseInt(const unsigned char** cursor, const unsigned char* end,
                                    std::int16_t* type);
[[nodiscard]] std::uint32_t ParseUInt(const unsigned char** cursor, const unsigned char* end,
                                      std::int16_t* type);

// ParseUInt64 reads a Counter64 of 1 to 8 bytes, or 9 of which the first is 0.
[[nodiscard]] UInt64* ParseUInt64(const unsigned char** cursor, const unsigned char* end);

// ParseOctetString reads an OCTET STRING, IpAddress or Opaque of up to 2048 bytes. `type` receives
// the tag, or -1.
[[nodiscard]] OctetString* ParseOctetString(const unsigned char** cursor, const unsigned char* end,
                                            std::int16_t* type);

// ParseNull reads a NULL, noSuchObject, noSuchInstance or endOfMibView. Returns 0 or -1; `type`
// receives the tag, or -1.
[[nodiscard]] int ParseNull(const unsigned char** cursor, const unsigned char* end,
                            std::int16_t* type);

// ParseOID reads an OBJECT IDENTIFIER of up to 128 sub-identifiers. Its first byte is split into
// b / 40 and b mod 40, so that 120 to 127 give a first sub-identifier of 3. An OID without content
// is null without a message. Of a sub-identifier beyond 32 bits the lower 32 are kept as long as
// it has no more than four leading bytes, or five of which the first is at most 0x8F; one that the
// content ends in the middle of is dropped.
[[nodiscard]] OID* ParseOID(const unsigned char** cursor, const unsigned char* end);

// ParseVarBind reads one binding. A value with an unknown tag is skipped: the `type` is then 0.
[[nodiscard]] VarBind* ParseVarBind(const unsigned char** cursor, const unsigned char* end);

}  // namespace tally
