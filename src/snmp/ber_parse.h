// The parsers of single elements, over a reader. Private to the library: prse_pkt.h has their
// public forms at a cursor, and says what each accepts and returns.
#pragma once

#include <cstdint>

#include "snmp/ber_reader.h"
#include "snmp/values.h"

namespace tally {

int parse_type(BerReader& in);

// parse_length needs at least one byte. When there is none the caller refuses, in its own words.
std::int32_t parse_length(BerReader& in);

std::int32_t parse_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_implicit_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_int(BerReader& in, std::int16_t* type);
std::uint32_t parse_uint(BerReader& in, std::int16_t* type);
UInt64* parse_uint64(BerReader& in);

// parse_octet_string fills `place`, which has room for what a short length says, or makes a string.
OctetString* parse_octet_string(BerReader& in, std::int16_t* type, OctetString* place = nullptr);

int parse_null(BerReader& in, std::int16_t* type);
OID* parse_oid(BerReader& in);
VarBind* parse_binding(BerReader& in);

}  // namespace tally
