#include "snmp/ber_parse.h"

#include <algorithm>
#include <cstring>

#include "snmp/debug.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/record.h"

namespace tally {
namespace {

constexpr std::int32_t kMaxOidContent = 640;  // 128 sub-identifiers of 5 bytes

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

// Decodes one sub-identifier in base 128 from `next`, which moves behind it. Returns false for one
// that is too big, by the count of its continuation bytes (bit 7 set): up to four are let pass
// whatever they hold, a fifth only when the first has no bit above 3, a sixth never. `complete` is
// false when the content ends before it does.
bool parse_subid(const unsigned char*& next, const unsigned char* end, std::uint32_t& subid,
                 bool& complete) {
  const unsigned char* const first = next;
  subid = 0;
  while (next != end) {
    const unsigned char byte = *next++;
    subid = subid << 7 | (byte & 0x7F);
    if ((byte & 0x80) == 0) return complete = true;
    const std::ptrdiff_t continuations = next - first;
    if (continuations > 5 || (continuations == 5 && (*first & 0x70) != 0)) return false;
  }
  complete = false;
  return true;
}

// Counts the bytes without bit 7, each of which ends a sub-identifier. Eight at once, for names are
// most of a packet.
std::int32_t count_ends(const unsigned char* bytes, std::ptrdiff_t count) {
  std::int32_t ends = 0;
  for (; count >= 8; count -= 8, bytes += 8) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes, sizeof eight);
    const std::uint64_t bits = (~eight & 0x8080808080808080U) >> 7;       // one per byte at most
    ends += static_cast<std::int32_t>(bits * 0x0101010101010101U >> 56);  // their sum
  }
  for (; count > 0; --count) ends += *bytes++ <= 0x7F;
  return ends;
}

// Decodes the sub-identifiers behind the first two from `next` to `end` into an OID that has room
// for one per byte that ends one, or for 128. `missing` tells that the content goes on behind
// `end`. False when they are refused (logs).
bool parse_subids(const unsigned char* next, const unsigned char* end, bool missing, OID& oid) {
  std::int32_t index = 2;
  while (next != end) {
    // Most sub-identifiers have one byte: four are tested at once where there is room for more,
    // which leaves the tests of the limit to the path below.
    if (end - next >= 4 && index + 4 < oid.length) {
      std::uint32_t four = 0;
      std::memcpy(&four, next, sizeof four);
      if ((four & 0x80808080) == 0) {
        for (int i = 0; i < 4; ++i) oid.oid_ptr[index++] = *next++;
        continue;
      }
    }
    std::uint32_t subid = *next;
    bool complete = true;
    if (subid <= 0x7F) {
      ++next;
    } else if (!parse_subid(next, end, subid, complete)) {
      ZN_LOG(APERROR, "ParseOID, sid value too big.\n");
      return false;
    }
    if (!complete) break;
    if (index >= oid.length) {  // cannot be, see above
      ZN_LOG(APERROR, "ParseOID, past end of allocated OID.\n");
      return false;
    }
    oid.oid_ptr[index++] = subid;
    if (index >= kMaxSubIds && (next != end || missing)) {
      ZN_LOG(APERROR, "ParseOID, Bad oid string length, length > 128\n");
      return false;
    }
  }
  if (missing) {
    ZN_LOG(APWARN, "ParseOID, past end of packet.\n");
    return false;
  }
  oid.length = index;
  return true;
}

}  // namespace

int refuse_type(BerReader& in) {
  const int tag = in.take();
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseType, past end of packet.\n");
  } else {
    ZN_LOG(APPACKET, "no such type in ParseType (%d) (0x%x)\n", tag, static_cast<unsigned>(tag));
  }
  return -1;
}

std::int32_t parse_long_length(BerReader& in) {
  const unsigned count = in.take() & 0x7F;
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
  UInt64Ptr value(new_counter());
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
  // What is there of the content. Each of its bytes without bit 7 ends a sub-identifier, and the
  // first stands for two.
  const auto there = std::min<std::ptrdiff_t>(length, in.end() - in.position());
  const unsigned char* const bytes = in.take_bytes(static_cast<std::size_t>(there));
  OidPtr oid(new_oid(std::min(count_ends(bytes, there) + 1, kMaxSubIds)));
  if (oid == nullptr) {
    ZN_LOG(APWARN, "ParseOID, oid_ptr MakeOID\n");
    return nullptr;
  }
  if (there == 0) {
    ZN_LOG(APWARN, "ParseOID, past end of packet.\n");
    return nullptr;
  }
  oid->oid_ptr[0] = bytes[0] / 40;
  oid->oid_ptr[1] = bytes[0] % 40;
  if (!parse_subids(bytes + 1, bytes + there, there < length, *oid)) return nullptr;
  if (oid->length > kMaxSubIds) {  // cannot be, after parse_subids
    ZN_LOG(APERROR, "ParseOID: Bad sid string length: %d\n", oid->length);
    return nullptr;
  }
  return oid.release();
}

}  // namespace tally
