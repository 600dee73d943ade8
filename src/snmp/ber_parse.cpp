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

// Which tags SNMP has.
constexpr auto kKnownTags = [] {
  std::array<bool, 256> known{};
  for (int tag = 0; tag < 256; ++tag) {
    known[static_cast<std::size_t>(tag)] = tag == SEQUENCE_TYPE ||
                                           value_kind(tag) != ValueKind::illegal ||
                                           pdu_form(tag) != PduForm::illegal;
  }
  return known;
}();

// What a parser logs about the element that it reads. The texts about the tag are formats: they
// may show the tag, and the one that was expected.
struct Element {
  std::uint32_t level;  // of every message but the one about the end of the packet
  const char* parser;
  const char* bad_type;
  const char* other_type = nullptr;  // for a tag that SNMP has, where the text differs
};

constexpr Element kSequence = {APPACKET, "ParseSequence", "ParseSequence, Unexpected type: %x\n"};
constexpr Element kImplicitSequence = {
    APPACKET, "ParseImplicitSequence",
    "ParseImplicitSequence, Unexpected type: %x (expected %x)\n"};
constexpr Element kInt = {APPACKET, "ParseInt", "parsed_signedinteger, type error.\n"};
constexpr Element kUInt = {APPACKET, "ParseUInt", "ParseUInt, type error.\n"};
constexpr Element kUInt64 = {APPACKET, "ParseUInt64", "ParseUInt64, type error.\n",
                             "ParseUInt64, type %x not COUNTER_64_TYPE\n"};
constexpr Element kOctetString = {APPACKET, "ParseOctetString", "ParseOctetString, type error.\n"};
constexpr Element kNull = {APPACKET, "ParseNull", "ParseNull, Unexpected type: %x\n"};
constexpr Element kOid = {APERROR, "ParseOID", "ParseOID, type error.\n",
                          "ParseOID, type %x not OBJECT_ID_TYPE\n"};

// Takes the content of an element. Null when bytes are missing (logs).
const unsigned char* take_content(BerReader& in, const Element& element, std::int32_t length) {
  const unsigned char* const bytes = in.take_bytes(static_cast<std::size_t>(length));
  if (bytes == nullptr) ZN_LOG(APWARN, "%s, past end of packet.\n", element.parser);
  return bytes;
}

// Does what parse_header leaves: refused tags, lengths in the long form, missing bytes.
std::int32_t parse_other_header(BerReader& in, const Element& element, bool accepted,
                                int expected) {
  const int tag = parse_type(in);
  if (tag < 0 || !accepted) {
    const bool other = tag >= 0 && element.other_type != nullptr;
    ZN_LOG(element.level, other ? element.other_type : element.bad_type, static_cast<unsigned>(tag),
           static_cast<unsigned>(expected));
    return -1;
  }
  if (in.at_end()) {
    ZN_LOG(APWARN, "%s, past end of packet.\n", element.parser);
    return -1;
  }
  const std::int32_t length = parse_length(in);
  if (length < 0) ZN_LOG(element.level, "%s, length error.\n", element.parser);
  return length;
}

// Reads the tag and the length field of an element. Returns the length, or -1 (logs). `accepted`
// says whether the parser takes the tag that comes next.
inline std::int32_t parse_header(BerReader& in, const Element& element, bool accepted,
                                 int expected = 0) {
  if (in.left() < 2 || !accepted || in.position()[1] > 0x7F) {
    return parse_other_header(in, element, accepted, expected);
  }
  return in.take_bytes(2)[1];
}

// Reads an unsigned number of at most `width` bytes, which a zero byte may precede. False when it
// is refused (logs).
bool parse_unsigned(BerReader& in, const Element& element, std::int32_t length, std::int32_t width,
                    std::uint64_t& value) {
  if (length < 1 || length > width + 1 || (length > width && in.peek() != 0)) {
    ZN_LOG(APPACKET, "%s, length error: %ld\n", element.parser, static_cast<long>(length));
    return false;
  }
  const unsigned char* const bytes = take_content(in, element, length);
  if (bytes == nullptr) return false;
  value = 0;
  for (std::int32_t i = 0; i < length; ++i) value = value << 8 | bytes[i];
  return true;
}

// Reads a sub-identifier whose first byte, with bit 7 set, is at `next`, which moves behind it.
// Returns false for one that is too big, by the count of its continuation bytes: up to four are let
// pass whatever they hold, a fifth only when the first has no bit above 3, a sixth never.
// `complete` is false when the content ends before it does.
bool parse_long_subid(const unsigned char*& next, const unsigned char* end, std::uint32_t& subid,
                      bool& complete) {
  const unsigned char first = *next++;
  subid = first & 0x7F;
  for (int continuations = 1; next != end; ++continuations) {
    const unsigned char byte = *next++;
    subid = subid << 7 | (byte & 0x7F);
    if ((byte & 0x80) == 0) return true;
    if (continuations > 4 || (continuations == 4 && (first & 0x70) != 0)) return false;
  }
  complete = false;
  return true;
}

// Reads an OID. Returns how many sub-identifiers it has, or 0 (logs, but for an empty one).
std::int32_t parse_sids(BerReader& in, std::uint32_t (&sids)[kMaxSubIds]) {
  const std::int32_t length = parse_header(in, kOid, in.peek() == OBJECT_ID_TYPE);
  if (length <= 0) return 0;  // no content, no first byte, no message
  if ((in.peek() & 0x80) != 0) {
    ZN_LOG(APERROR, "ParseOID, more bit set in first subidentifier.\n");
    return 0;
  }
  if (length > kMaxOidContent) {
    ZN_LOG(APERROR, "ParseOID, OID length too large.\n");
    return 0;
  }
  const std::size_t there = std::min(in.left(), static_cast<std::size_t>(length));
  const bool missing = there < static_cast<std::size_t>(length);
  const unsigned char* next = in.take_bytes(there);
  const unsigned char* const end = next + there;
  std::int32_t count = 0;
  if (next != end) {
    sids[count++] = *next / 40U;
    sids[count++] = *next++ % 40U;
  }
  while (next != end && count < kMaxSubIds) {
    if (*next <= 0x7F) [[likely]] {
      sids[count++] = *next++;
      continue;
    }
    bool complete = true;
    if (!parse_long_subid(next, end, sids[count], complete)) {
      ZN_LOG(APERROR, "ParseOID, sid value too big.\n");
      return 0;
    }
    if (complete) ++count;
  }
  if (count == kMaxSubIds && (next != end || missing)) {
    ZN_LOG(APERROR, "ParseOID, Bad oid string length, length > 128\n");
    return 0;
  }
  if (missing) {
    ZN_LOG(APWARN, "ParseOID, past end of packet.\n");
    return 0;
  }
  return count;
}

}  // namespace

int parse_type(BerReader& in) {
  if (in.at_end()) {
    ZN_LOG(APWARN, "ParseType, past end of packet.\n");
    return -1;
  }
  const unsigned char tag = in.take();
  if (kKnownTags[tag]) return tag;
  ZN_LOG(APPACKET, "no such type in ParseType (%d) (0x%x)\n", int{tag}, unsigned{tag});
  return -1;
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
  const std::int32_t length = parse_header(in, kSequence, in.peek() == SEQUENCE_TYPE);
  *type = length < 0 ? std::int16_t{-1} : SEQUENCE_TYPE;
  return length;
}

std::int32_t parse_implicit_sequence(BerReader& in, std::int16_t* type) {
  const std::int16_t expected = *type;
  const unsigned char tag = in.peek();
  const bool accepted = tag == expected && kKnownTags[tag];
  const std::int32_t length = parse_header(in, kImplicitSequence, accepted, expected);
  if (length < 0) *type = -1;
  return length;
}

std::int32_t parse_int(BerReader& in, std::int16_t* type) {
  *type = -1;
  const std::int32_t length = parse_header(in, kInt, in.peek() == INTEGER_TYPE);
  if (length < 0) return 0;
  if (length > 4) {
    ZN_LOG(APPACKET, "parsed_signedinteger, length error: %ld\n", static_cast<long>(length));
    return 0;
  }
  const unsigned char* const bytes = take_content(in, kInt, length);
  if (bytes == nullptr) return 0;
  // The sign bit of the first byte fills what the content leaves free.
  std::uint32_t value = length > 0 && (bytes[0] & 0x80) != 0 ? ~0U : 0U;
  for (std::int32_t i = 0; i < length; ++i) value = value << 8 | bytes[i];
  *type = INTEGER_TYPE;
  return static_cast<std::int32_t>(value);
}

std::uint32_t parse_uint(BerReader& in, std::int16_t* type) {
  *type = -1;
  const std::int16_t tag = in.peek();
  const std::int32_t length = parse_header(in, kUInt, value_kind(tag) == ValueKind::unsigned32);
  std::uint64_t value = 0;
  if (length < 0 || !parse_unsigned(in, kUInt, length, 4, value)) return 0;
  *type = tag;
  return static_cast<std::uint32_t>(value);
}

UInt64* parse_uint64(BerReader& in) {
  const std::int32_t length = parse_header(in, kUInt64, in.peek() == COUNTER_64_TYPE);
  std::uint64_t value = 0;
  if (length < 0 || !parse_unsigned(in, kUInt64, length, 8, value)) return nullptr;
  auto* const counter = new_record<UInt64>();
  if (counter == nullptr) {
    ZN_LOG(APWARN, "ParseUInt64, uint64_ptr malloc\n");
    return nullptr;
  }
  *counter = {static_cast<std::uint32_t>(value >> 32), static_cast<std::uint32_t>(value)};
  return counter;
}

OctetString* parse_octet_string(BerReader& in, std::int16_t* type, OctetString* place) {
  *type = -1;
  const std::int16_t tag = in.peek();
  const std::int32_t length = parse_header(in, kOctetString, value_kind(tag) == ValueKind::octets);
  if (length < 0) return nullptr;
  // A string that is too long gets the same text as one that is cut short.
  if (length > kMaxOctets) {
    ZN_LOG(APWARN, "ParseOctetString, past end of packet.\n");
    return nullptr;
  }
  const unsigned char* const bytes = take_content(in, kOctetString, length);
  if (bytes == nullptr) return nullptr;
  OctetString* const string = place == nullptr ? MakeOctetString(bytes, length) : place;
  if (place != nullptr) std::copy_n(bytes, length, place->octet_ptr);
  if (string == nullptr) {
    ZN_LOG(APWARN, "ParseOctetString, os_ptr\n");
    return nullptr;
  }
  *type = tag;
  return string;
}

int parse_null(BerReader& in, std::int16_t* type) {
  *type = -1;
  const std::int16_t tag = in.peek();
  const std::int32_t length = parse_header(in, kNull, value_kind(tag) == ValueKind::empty);
  if (length < 0) return -1;
  if (length > 0) {
    ZN_LOG(APPACKET, "ParseNull, length nonzero.\n");
    return -1;
  }
  *type = tag;
  return 0;
}

OID* parse_oid(BerReader& in) {
  std::uint32_t sids[kMaxSubIds];
  const std::int32_t count = parse_sids(in, sids);
  if (count == 0) return nullptr;
  OID* const oid = MakeOID(sids, count);
  if (oid == nullptr) ZN_LOG(APWARN, "ParseOID, oid_ptr MakeOID\n");
  return oid;
}

namespace {

// Skips a value with an unknown tag. False when its length is refused or bytes are missing (logs).
bool skip_value(BerReader& in) {
  const unsigned tag = in.take();
  ZN_LOG(APPACKET, "ParseVarBind, value: Illegal type: 0x%x\n", tag);
  // Without its length the value runs past the end.
  const std::int32_t length = in.at_end() ? INT32_MAX : parse_length(in);
  if (length < 0) {
    ZN_LOG(APPACKET, "ParseVarBind, length error.\n");
    return false;
  }
  if (in.take_bytes(static_cast<std::size_t>(length)) == nullptr) {
    ZN_LOG(APWARN, "ParseVarBind, past end of packet.\n");
    return false;
  }
  return true;
}

// Reads the value of a binding by its tag; the type of a skipped one stays 0. False when it is
// refused (logs).
bool parse_value(BerReader& in, VarBind& binding) {
  std::int16_t type = -1;
  const char* text = "";
  auto& value = binding.value;
  switch (value_kind(in.peek())) {
    case ValueKind::integer:
      value.sl_value = parse_int(in, &type);
      text = "ParseVarBind, vb_ptr->value.sl_value\n";
      break;
    case ValueKind::unsigned32:
      value.ul_value = parse_uint(in, &type);
      text = "ParseVarBind, vb_ptr->value.ul_value\n";
      break;
    case ValueKind::oid:
      value.oid_value = parse_oid(in);
      if (value.oid_value != nullptr) type = OBJECT_ID_TYPE;
      text = "ParseVarBind, vb_ptr->value.oid_value\n";
      break;
    case ValueKind::unsigned64:
      value.uint64_value = parse_uint64(in);
      if (value.uint64_value != nullptr) type = COUNTER_64_TYPE;
      text = "ParseVarBind, vb_ptr->value.uint64_value\n";
      break;
    case ValueKind::octets:
      value.os_value = parse_octet_string(in, &type, value.os_value);
      text = "ParseVarBind, vb_ptr->value.os_value\n";
      break;
    case ValueKind::empty:
      (void)parse_null(in, &type);  // `type` tells
      text = "ParseVarBind, ParseNull\n";
      break;
    case ValueKind::illegal:
      return skip_value(in);
  }
  if (type < 0) {
    ZN_LOG(APPACKET, "%s", text);
    return false;
  }
  binding.type = type;
  if (type == IP_ADDR_PRIM_TYPE && value.os_value->length != 4) {
    ZN_LOG(APPACKET, "ParseVarBind, IP_ADDR_PRIM_TYPE value must be 4 bytes.\n");
    return false;
  }
  return true;
}

}  // namespace

VarBind* parse_binding(BerReader& in) {
  std::int16_t type = -1;
  if (parse_sequence(in, &type) < 0) {
    ZN_LOG(APPACKET, "ParseVarBind, ParseSequence failure\n");
    return nullptr;
  }
  const unsigned char* const name_start = in.position();
  std::uint32_t sids[kMaxSubIds];
  const std::int32_t count = parse_sids(in, sids);
  if (count == 0) {
    ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->name\n");
    return nullptr;
  }
  const bool short_octets =
      in.left() >= 2 && value_kind(in.peek()) == ValueKind::octets && in.position()[1] <= 0x7F;
  VarBindPtr binding(new_decoded_binding(sids, count, short_octets ? in.position()[1] : -1));
  if (binding == nullptr) {
    ZN_LOG(APWARN, "ParseVarBind, vb_ptr\n");
    return nullptr;
  }
  const unsigned char* const value_start = in.position();
  if (in.at_end()) {
    ZN_LOG(APWARN, "ParseVarBind, past end of packet.\n");
    return nullptr;
  }
  if (!parse_value(in, *binding)) return nullptr;
  const std::ptrdiff_t value_size = in.position() - value_start;
  if (value_size > INT16_MAX) {  // only a skipped one can be that long
    ZN_LOG(APPACKET, "ParseVarBind, length error.\n");
    return nullptr;
  }
  binding->name_size = static_cast<std::int16_t>(value_start - name_start);
  binding->value_size = static_cast<std::int16_t>(value_size);
  binding->data_length = binding->name_size + binding->value_size;
  return binding.release();
}

}  // namespace tally
