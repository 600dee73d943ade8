#include "snmp/ber_parse.h"

#include <algorithm>
#include <array>

#include "snmp/debug.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/record.h"

namespace tally {
namespace {

constexpr std::int32_t kMaxOidContent = 640;  // 128 sub-identifiers of 5 bytes

constexpr auto kKnownTags = [] {
  std::array<bool, 256> known{};
  for (int tag = 0; tag < 256; ++tag) {
    known[static_cast<std::size_t>(tag)] = tag == SEQUENCE_TYPE ||
                                           value_kind(tag) != ValueKind::illegal ||
                                           pdu_form(tag) != PduForm::illegal;
  }
  return known;
}();

// Takes the content of an element whose length has passed its own tests, or returns null.
const unsigned char* take_content(BerReader& in, std::int32_t length) {
  return in.take_bytes(static_cast<std::size_t>(length));
}

// Tests the length of an unsigned number that may have `width` bytes and one more of 0.
bool unsigned_length_fits(const BerReader& in, std::int32_t length, std::int32_t width) {
  return length > 0 && length <= width + 1 && (length <= width || in.peek() == 0);
}

// Joins the content of an unsigned number; a 9th byte, which is 0, falls out of the top.
std::uint64_t join_bytes(const unsigned char* bytes, std::int32_t length) {
  std::uint64_t value = 0;
  for (std::int32_t i = 0; i < length; ++i) value = value << 8 | bytes[i];
  return value;
}

// Decodes the sub-identifiers behind the first two from `left` bytes of content, of which those
// before the reader's end are there. False when they are refused (logs).
bool parse_subids(BerReader& in, std::int32_t left, OID& oid) {
  std::int32_t index = 2;
  const auto there = std::min<std::ptrdiff_t>(left, in.end() - in.position());
  const unsigned char* next = in.take_bytes(static_cast<std::size_t>(there));
  const unsigned char* const end = next + there;
  const unsigned char* first = next;  // of the current sub-identifier
  std::uint32_t value = 0;
  while (next != end) {
    const unsigned char byte = *next++;
    value = value << 7 | (byte & 0x7F);
    --left;
    if ((byte & 0x80) != 0) {
      const std::ptrdiff_t continuations = next - first;
      if (continuations > 5 || (continuations == 5 && (*first & 0x70) != 0)) {
        ZN_LOG(APERROR, "ParseOID, sid value too big.\n");
        return false;
      }
      continue;
    }
    if (index >= oid.length) {  // the room is for as many as there can be
      ZN_LOG(APERROR, "ParseOID, past end of allocated OID.\n");
      return false;
    }
    oid.oid_ptr[index++] = value;
    value = 0;
    first = next;
    if (left > 0 && index > kMaxSubIds - 1) {
      ZN_LOG(APERROR, "ParseOID, Bad oid string length, length > 128\n");
      return false;
    }
  }
  if (left > 0) {
    ZN_LOG(APWARN, "ParseOID, past end of packet.\n");
    return false;
  }
  oid.length = index;
  return true;
}

}  // namespace

int parse_type(BerReader& in) {
  const int tag = in.take();
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseType, past end of packet.\n");
    return -1;
  }
  if (!kKnownTags[static_cast<std::size_t>(tag)]) {
    ZN_LOG(APPACKET, "no such type in ParseType (%d) (0x%x)\n", tag, static_cast<unsigned>(tag));
    return -1;
  }
  return tag;
}

std::int32_t parse_length(BerReader& in) {
  const unsigned char first = in.take();
  if (first <= 0x7F) return first;
  const unsigned count = first & 0x7F;
  if (count < 1 || count > 4) {
    ZN_LOG(APPACKET, "ParseLength: lenlen invalid: (%d).\n", static_cast<int>(count));
    return -1;
  }
  const unsigned char* const bytes = in.take_bytes(count);
  if (bytes == nullptr) {
    ZN_LOG(APWARN, "ParseLength, past end of packet.\n");
    return -1;
  }
  std::uint32_t length = 0;
  for (unsigned i = 0; i < count; ++i) length = length << 8 | bytes[i];
  if (length > INT32_MAX) {
    ZN_LOG(APPACKET, "ParseLength, length too large.\n");
    return -1;
  }
  return static_cast<std::int32_t>(length);
}

std::int32_t parse_sequence(BerReader& in, std::int16_t* type) {
  const int tag = parse_type(in);
  *type = -1;
  if (tag != SEQUENCE_TYPE) {
    ZN_LOG(APPACKET, "ParseSequence, Unexpected type: %x\n", static_cast<unsigned>(tag));
    return -1;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseSequence, length error.\n");
    return -1;
  }
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseSequence, past end of packet.\n");
    return -1;
  }
  *type = SEQUENCE_TYPE;
  return length;
}

std::int32_t parse_implicit_sequence(BerReader& in, std::int16_t* type) {
  const std::int16_t expected = *type;
  const int tag = parse_type(in);
  *type = -1;
  if (tag < 0 || tag != expected) {
    ZN_LOG(APPACKET, "ParseImplicitSequence, Unexpected type: %x (expected %x)\n",
           static_cast<unsigned>(tag), static_cast<unsigned>(expected));
    return -1;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseImplicitSequence, length error.\n");
    return -1;
  }
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseImplicitSequence, past end of packet.\n");
    return -1;
  }
  *type = expected;
  return length;
}

std::int32_t parse_int(BerReader& in, std::int16_t* type) {
  *type = -1;
  if (parse_type(in) != INTEGER_TYPE) {
    ZN_LOG(APPACKET, "parsed_signedinteger, type error.\n");
    return 0;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseInt, length error.\n");
    return 0;
  }
  if (length > 4) {
    ZN_LOG(APPACKET, "parsed_signedinteger, length error: %ld\n", static_cast<long>(length));
    return 0;
  }
  const unsigned char* const bytes = take_content(in, length);
  if (bytes == nullptr) {
    ZN_LOG(APWARN, "ParseInt, past end of packet.\n");
    return 0;
  }
  // The sign bit of the first byte fills what the content leaves free.
  std::uint32_t value = length > 0 && (bytes[0] & 0x80) != 0 ? ~0U : 0U;
  for (std::int32_t i = 0; i < length; ++i) value = value << 8 | bytes[i];
  *type = INTEGER_TYPE;
  return static_cast<std::int32_t>(value);
}

std::uint32_t parse_uint(BerReader& in, std::int16_t* type) {
  const int tag = parse_type(in);
  *type = -1;
  if (value_kind(tag) != ValueKind::unsigned32) {
    ZN_LOG(APPACKET, "ParseUInt, type error.\n");
    return 0;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseUInt, length error.\n");
    return 0;
  }
  if (!in.overrun() && !unsigned_length_fits(in, length, 4)) {
    ZN_LOG(APPACKET, "ParseUInt, length error: %ld\n", static_cast<long>(length));
    return 0;
  }
  const unsigned char* const bytes = take_content(in, length);
  if (bytes == nullptr) {
    ZN_LOG(APWARN, "ParseUInt, past end of packet.\n");
    return 0;
  }
  *type = static_cast<std::int16_t>(tag);
  return static_cast<std::uint32_t>(join_bytes(bytes, length));
}

UInt64* parse_uint64(BerReader& in) {
  const int tag = parse_type(in);
  if (tag < 0) {
    ZN_LOG(APPACKET, "ParseUInt64, type error.\n");
    return nullptr;
  }
  if (tag != COUNTER_64_TYPE) {
    ZN_LOG(APPACKET, "ParseUInt64, type %x not COUNTER_64_TYPE\n", static_cast<unsigned>(tag));
    return nullptr;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseUInt64, length error.\n");
    return nullptr;
  }
  if (!in.overrun() && !unsigned_length_fits(in, length, 8)) {
    ZN_LOG(APPACKET, "ParseUInt64, length error: %ld\n", static_cast<long>(length));
    return nullptr;
  }
  UInt64Ptr value(new_record<UInt64>());
  if (value == nullptr) {
    ZN_LOG(APWARN, "ParseUInt64, uint64_ptr malloc\n");
    return nullptr;
  }
  const unsigned char* const bytes = take_content(in, length);
  if (bytes == nullptr) {
    ZN_LOG(APWARN, "ParseUInt64, past end of packet.\n");
    return nullptr;
  }
  const std::uint64_t number = join_bytes(bytes, length);
  *value = {static_cast<std::uint32_t>(number >> 32), static_cast<std::uint32_t>(number)};
  return value.release();
}

OctetString* parse_octet_string(BerReader& in, std::int16_t* type) {
  const int tag = parse_type(in);
  *type = -1;
  if (value_kind(tag) != ValueKind::octets) {
    ZN_LOG(APPACKET, "ParseOctetString, type error.\n");
    return nullptr;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseOctetString, length error.\n");
    return nullptr;
  }
  const unsigned char* const bytes = length > kMaxOctets ? nullptr : take_content(in, length);
  if (bytes == nullptr) {
    ZN_LOG(APWARN, "ParseOctetString, past end of packet.\n");
    return nullptr;
  }
  OctetString* const string = MakeOctetString(bytes, length);
  if (string == nullptr) {
    ZN_LOG(APWARN, "ParseOctetString, os_ptr\n");
    return nullptr;
  }
  *type = static_cast<std::int16_t>(tag);
  return string;
}

int parse_null(BerReader& in, std::int16_t* type) {
  const int tag = parse_type(in);
  *type = -1;
  if (value_kind(tag) != ValueKind::empty) {
    ZN_LOG(APPACKET, "ParseNull, Unexpected type: %x\n", static_cast<unsigned>(tag));
    return -1;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseNull, length error.\n");
    return -1;
  }
  if (length > 0) {
    ZN_LOG(APPACKET, "ParseNull, length nonzero.\n");
    return -1;
  }
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseNull, past end of packet.\n");
    return -1;
  }
  *type = static_cast<std::int16_t>(tag);
  return 0;
}

OID* parse_oid(BerReader& in) {
  const int tag = parse_type(in);
  if (tag < 0) {
    ZN_LOG(APERROR, "ParseOID, type error.\n");
    return nullptr;
  }
  if (tag != OBJECT_ID_TYPE) {
    ZN_LOG(APERROR, "ParseOID, type %x not OBJECT_ID_TYPE\n", static_cast<unsigned>(tag));
    return nullptr;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) {
    ZN_LOG(APERROR, "ParseOID, length error.\n");
    return nullptr;
  }
  if (length == 0 && !in.overrun()) return nullptr;  // no content, no first byte, no message
  if ((in.peek() & 0x80) != 0) {
    ZN_LOG(APERROR, "ParseOID, more bit set in first subidentifier.\n");
    return nullptr;
  }
  if (length > kMaxOidContent) {
    ZN_LOG(APERROR, "ParseOID, OID length too large.\n");
    return nullptr;
  }
  OidPtr oid(new_oid(std::min(length + 2, kMaxSubIds)));
  if (oid == nullptr) {
    ZN_LOG(APWARN, "ParseOID, oid_ptr MakeOID\n");
    return nullptr;
  }
  const unsigned char first = in.take();
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseOID, past end of packet.\n");
    return nullptr;
  }
  oid->oid_ptr[0] = first / 40;
  oid->oid_ptr[1] = first % 40;
  if (!parse_subids(in, length - 1, *oid)) return nullptr;
  if (oid->length > kMaxSubIds) {
    ZN_LOG(APERROR, "ParseOID: Bad sid string length: %d\n", oid->length);
    return nullptr;
  }
  return oid.release();
}

}  // namespace tally
