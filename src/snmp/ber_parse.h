// The parsers of single elements, over a reader. Private to the library: prse_pkt.h has their
// public forms at a cursor, and says what each accepts and returns.
#pragma once

#include <array>
#include <cstdint>

#include "snmp/ber_reader.h"
#include "snmp/values.h"

namespace tally {

// Which tags SNMP has.
inline constexpr auto kKnownTags = [] {
  std::array<bool, 256> known{};
  for (int tag = 0; tag < 256; ++tag) {
    known[static_cast<std::size_t>(tag)] = tag == SEQUENCE_TYPE ||
                                           value_kind(tag) != ValueKind::illegal ||
                                           pdu_form(tag) != PduForm::illegal;
  }
  return known;
}();

// What the inline forms below leave: missing bytes, unknown tags and the long form.
int refuse_type(BerReader& in);
std::int32_t parse_long_length(BerReader& in);

inline int parse_type(BerReader& in) {
  if (in.at_end() || !kKnownTags[in.peek()]) return refuse_type(in);
  return in.take();
}

// parse_length returns 0 when even the first byte is missing, and leaves the reader overrun: where
// a byte is missing the refusal is due to the first test that would have noticed, and a length
// field of one byte is not tested by itself but by the parser of the element around it.
inline std::int32_t parse_length(BerReader& in) {
  return in.peek() <= 0x7F ? in.take() : parse_long_length(in);
}

std::int32_t parse_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_implicit_sequence(BerReader& in, std::int16_t* type);
std::int32_t parse_int(BerReader& in, std::int16_t* type);
std::uint32_t parse_uint(BerReader& in, std::int16_t* type);
UInt64* parse_uint64(BerReader& in);
OctetString* parse_octet_string(BerReader& in, std::int16_t* type);
int parse_null(BerReader& in, std::int16_t* type);
OID* parse_oid(BerReader& in);

}  // namespace tally
