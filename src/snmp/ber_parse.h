// The parsers of single elements, over a reader. Private to the library: prse_pkt.h has their
// public forms at a cursor, and says what each accepts and returns.
#pragma once

#include <cstdint>

#include "snmp/ber_reader.h"
#include "snmp/values.h"

namespace tally {

int parse_type(BerReader& in);

// parse_length returns 0 when even the first byte is missing, and leaves the reader overrun: where
// a byte is missing the refusal is due to the first test that would have noticed, and a length
// field of one byte is not tested by itself but by the parser of the element around it.
std::int32_t parse_length(BerReader& in);

std::int32_t parse_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_implicit_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_int(BerReader& in, std::int16_t* type);
std::uint32_t parse_uint(BerReader& in, std::int16_t* type);
UInt64* parse_uint64(BerReader& in);
OctetString* parse_octet_string(BerReader& in, std::int16_t* type);
int parse_null(BerReader& in, std::int16_t* type);
OID* parse_oid(BerReader& in);

}  // namespace tally
