#include "snmp/bld_pkt.h"

#include <cassert>
#include <cstring>

#include "snmp/ber_size.h"
#include "snmp/ber_writer.h"
#include "snmp/debug.h"
#include "snmp/findlen.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {
namespace {

bool add_len(BerWriter& out, std::int16_t lenlen, std::int32_t length) {
  if (lenlen < 1 || lenlen > 4) return false;
  unsigned char* next = out.reserve(static_cast<std::size_t>(lenlen));
  if (next == nullptr) return false;
  const auto size = static_cast<std::uint32_t>(length);
  if (lenlen > 1) *next++ = static_cast<unsigned char>(0x7F + lenlen);
  for (int left = lenlen == 1 ? 1 : lenlen - 1; left > 0; --left) {
    *next++ = static_cast<unsigned char>(size >> (8 * (left - 1)));
  }
  return true;
}

// Writes the tag of an element and the length of its content, which is in range.
bool add_header(BerWriter& out, std::int16_t tag, std::int32_t content) {
  if (content <= 0x7F) {
    unsigned char* const place = out.reserve(2);
    if (place == nullptr) return false;
    place[0] = static_cast<unsigned char>(tag);
    place[1] = static_cast<unsigned char>(content);
    return true;
  }
  unsigned char* const place = out.reserve(1);
  if (place == nullptr) return false;
  *place = static_cast<unsigned char>(tag);
  return add_len(out, length_size(content), content);
}

// Writes the last `content` bytes of a number, most significant first. The number is as wide as
// nine bytes could need: where a ninth is asked for it is the 0 that keeps the value positive.
bool add_number(BerWriter& out, std::int16_t tag, int content, std::uint64_t bits) {
  if (!add_header(out, tag, content)) return false;
  unsigned char* next = out.reserve(static_cast<std::size_t>(content));
  if (next == nullptr) return false;
  int left = content;
  if (left == 9) {
    *next++ = 0;
    left = 8;
  }
  for (; left > 0; --left) *next++ = static_cast<unsigned char>(bits >> (8 * (left - 1)));
  return true;
}

bool add_int(BerWriter& out, std::int16_t tag, std::int32_t value) {
  return add_number(out, tag, int_content(value), static_cast<std::uint32_t>(value));
}

bool add_uint(BerWriter& out, std::int16_t tag, std::uint32_t value) {
  return add_number(out, tag, uint_content(value), value);
}

bool add_uint64(BerWriter& out, std::int16_t tag, const UInt64* value) {
  if (value == nullptr) {
    ZN_LOG(APPACKET, "AddUInt64, NULL input\n");
    return false;
  }
  return add_number(out, tag, uint_content(as_number(*value)), as_number(*value));
}

bool add_null(BerWriter& out, std::int16_t tag) {
  return add_header(out, tag, 0);
}

bool add_octet_string(BerWriter& out, std::int16_t tag, const OctetString* string) {
  if (string == nullptr || DoLenLen(string->length) < 0) {
    ZN_LOG(APPACKET, "AddOctetString,lenlen\n");
    return false;
  }
  if (!add_header(out, tag, string->length)) return false;
  const auto size = static_cast<std::size_t>(string->length);
  unsigned char* const place = out.reserve(size);
  if (place == nullptr) return false;
  if (size > 0) std::memcpy(place, string->octet_ptr, size);
  return true;
}

// Writes a sub-identifier in base 128, all bytes but the last with bit 7 set.
unsigned char* put_subid(unsigned char* next, std::uint32_t subid) {
  for (int shift = 7 * (subid_size(subid) - 1); shift > 0; shift -= 7) {
    *next++ = static_cast<unsigned char>(0x80 | (subid >> shift & 0x7F));
  }
  *next++ = static_cast<unsigned char>(subid & 0x7F);
  return next;
}

// Writes the sub-identifiers behind the first two into the room from `next` to `end`. False unless
// they fill it.
bool put_subids(unsigned char* next, const unsigned char* end, const OID& oid) {
  const std::uint32_t* sids = oid.oid_ptr + 2;
  const std::uint32_t* const last = oid.oid_ptr + oid.length;
  while (sids != last) {
    if (last - sids >= 4 && end - next >= 4 && four_small(sids)) {
      for (int i = 0; i < 4; ++i) *next++ = static_cast<unsigned char>(*sids++);
    } else {
      if (end - next < subid_size(*sids)) return false;
      next = put_subid(next, *sids++);
    }
  }
  return next == end;
}

// Writes an OID. `size` is that of the whole element as somebody has measured it before, or 0; it
// spares to measure the OID again, and one that proves to be wrong spoils the writer.
bool add_oid(BerWriter& out, std::int16_t tag, const OID* oid, std::int32_t size) {
  if (oid == nullptr || oid->length < 2) {
    ZN_LOG(APWARN, "%s: Attempting to encode oid with length < 2\n", "AddOID");
    return false;
  }
  // Stricter than BER on purpose: below 2, too, the second is at most 39, so that both always
  // share one byte.
  if (oid->oid_ptr[0] > 2 || oid->oid_ptr[1] > 39) {
    ZN_LOG(APWARN, "%s: illegal value for first two subids\n", "AddOID");
    return false;
  }
  const bool measured = size >= 3 && size <= 2 + 0x7F;  // with a length field of one byte
  const std::int32_t content = measured ? size - 2 : oid_content(oid);
  if (content < 0) {
    ZN_LOG(APPACKET, "%s: lenlen\n", "AddOID");
    return false;
  }
  if (!add_header(out, tag, content)) return false;
  unsigned char* const place = out.reserve(static_cast<std::size_t>(content));
  if (place == nullptr) return false;
  *place = static_cast<unsigned char>(40 * oid->oid_ptr[0] + oid->oid_ptr[1]);
  return put_subids(place + 1, place + content, *oid) || out.spoil();
}

bool add_value(BerWriter& out, const VarBind& binding) {
  const std::int16_t tag = binding.type;
  switch (value_kind(binding.type)) {
    case ValueKind::integer:
      return add_int(out, tag, binding.value.sl_value);
    case ValueKind::unsigned32:
      return add_uint(out, tag, binding.value.ul_value);
    case ValueKind::unsigned64:
      return add_uint64(out, tag, binding.value.uint64_value);
    case ValueKind::empty:
      return add_null(out, tag);
    case ValueKind::oid:
      if (add_oid(out, tag, binding.value.oid_value, binding.value_size)) return true;
      if (!out.spoilt()) ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return false;
    case ValueKind::octets:
      if (add_octet_string(out, tag, binding.value.os_value)) return true;
      if (!out.spoilt()) ZN_LOG(APPACKET, "%s: AddOctetString\n", "AddVarBind");
      return false;
    case ValueKind::illegal:
      break;
  }
  ZN_LOG(APPACKET, "%s: value: Illegal type: 0x%x\n", "AddVarBind",
         static_cast<unsigned>(binding.type));
  return false;
}

bool add_bindings(BerWriter& out, const VarBind* list) {
  for (; list != nullptr; list = list->next_var) {
    if (list->data_length < 0 || list->data_length > kMaxLength) {
      (void)DoLenLen(list->data_length);  // logs
      ZN_LOG(APPACKET, "%s: lenlen:\n", "AddVarBind");
      return false;
    }
    if (!add_header(out, SEQUENCE_TYPE, list->data_length)) return false;
    const unsigned char* const start = out.position();
    if (!add_oid(out, OBJECT_ID_TYPE, list->name, list->name_size)) {
      if (!out.spoilt()) ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return false;
    }
    if (!add_value(out, *list)) return false;
    if (out.position() - start != list->data_length) return out.spoil();
  }
  return true;
}

// Runs a writer at a cursor without an end.
template <typename Write>
int write_at(unsigned char** cursor, Write write) {
  BerWriter out(*cursor, SIZE_MAX);
  if (!write(out)) return -1;
  *cursor = out.position();
  return 0;
}

std::int16_t value_size(const VarBind& binding) {
  switch (value_kind(binding.type)) {
    case ValueKind::integer:
      return FindLenInt(binding.value.sl_value);
    case ValueKind::unsigned32:
      return FindLenUInt(binding.value.ul_value);
    case ValueKind::unsigned64:
      return FindLenUInt64(binding.value.uint64_value);
    case ValueKind::octets:
      return FindLenOctetString(binding.value.os_value);
    case ValueKind::oid:
      return FindLenOID(binding.value.oid_value);
    case ValueKind::empty:
      return 2;
    case ValueKind::illegal:
      break;
  }
  return binding.value_size;  // AddVarBind refuses it
}

// Sets the sizes in all bindings to what we would write.
void measure_bindings(VarBind* list) {
  for (; list != nullptr; list = list->next_var) {
    list->name_size = FindLenOID(list->name);
    list->value_size = value_size(*list);
  }
}

// Returns the size of what stands before the bindings, or -1.
std::int32_t measure_head(const Pdu& pdu) {
  switch (pdu_form(pdu.type)) {
    case PduForm::request:
      return FindLenInt(pdu.request_id) + FindLenInt(pdu.error_status) +
             FindLenInt(pdu.error_index);
    case PduForm::trap: {
      const std::int16_t enterprise = FindLenOID(pdu.enterprise);
      if (enterprise < 0) {
        ZN_LOG(APPACKET, "%s: temp_data_len (1)\n", "BuildPdu");
        return -1;
      }
      const std::int16_t address = FindLenOctetString(pdu.agent_addr);
      if (address < 0) {
        ZN_LOG(APPACKET, "%s: temp_data_len (2)\n", "BuildPdu");
        return -1;
      }
      return FindLenInt(pdu.generic_trap) + FindLenInt(pdu.specific_trap) +
             FindLenUInt(pdu.time_ticks) + enterprise + address;
    }
    case PduForm::illegal:
      break;
  }
  ZN_LOG(APPACKET, "%s: bad pdu type: %x\n", "BuildPdu", static_cast<unsigned>(pdu.type));
  return -1;
}

bool add_head(BerWriter& out, const Pdu& pdu) {
  switch (pdu_form(pdu.type)) {
    case PduForm::request:
      return add_int(out, INTEGER_TYPE, pdu.request_id) &&
             add_int(out, INTEGER_TYPE, pdu.error_status) &&
             add_int(out, INTEGER_TYPE, pdu.error_index);
    case PduForm::trap:
      return add_oid(out, OBJECT_ID_TYPE, pdu.enterprise, 0) &&
             add_octet_string(out, IP_ADDR_PRIM_TYPE, pdu.agent_addr) &&
             add_int(out, INTEGER_TYPE, pdu.generic_trap) &&
             add_int(out, INTEGER_TYPE, pdu.specific_trap) &&
             add_uint(out, TIME_TICKS_TYPE, pdu.time_ticks);
    case PduForm::illegal:
      break;
  }
  // measure_head has refused these; this stands for a type that only it would know.
  ZN_LOG(APPACKET, "%s: bad pdu_ptr->type - II. :%x\n", "BuildPdu",
         static_cast<unsigned>(pdu.type));
  return false;
}

enum class BuildResult { done, failed, wrong_sizes };

// Builds the PDU in two passes, with the sizes that the bindings have. Anything but `done` leaves
// no packlet.
BuildResult build(Pdu& pdu) {
  FreeOctetString(pdu.packlet);
  pdu.packlet = nullptr;

  const std::int16_t bindings = FindLenVarBind(pdu.var_bind_list);
  if (bindings < 0) {
    ZN_LOG(APPACKET, "%s: varbindlen:\n", "BuildPdu");
    return BuildResult::failed;
  }
  // Sizes of 16 bits have length fields of at most three bytes: these two tests stand for wider
  // ones.
  const std::int16_t bindings_lenlen = DoLenLen(bindings);
  if (bindings_lenlen < 0) {
    ZN_LOG(APPACKET, "%s: varbindlenlen:\n", "BuildPdu");
    return BuildResult::failed;
  }
  const std::int32_t head = measure_head(pdu);
  if (head < 0) return BuildResult::failed;
  const std::int32_t body = head + bindings + bindings_lenlen + 1;
  const std::int16_t lenlen = DoLenLen(body);
  if (lenlen < 0) {
    ZN_LOG(APPACKET, "%s: lenlen:\n", "BuildPdu");
    return BuildResult::failed;
  }

  OctetStringPtr packlet(MakeOctetString(nullptr, body + lenlen + 1));
  if (packlet == nullptr) {
    ZN_LOG(APWARN, "%s: pdu_ptr->packlet MakeOctetString failed\n", "BuildPdu");
    return BuildResult::failed;
  }
  BerWriter out(packlet->octet_ptr, static_cast<std::size_t>(packlet->length));
  if (!add_header(out, pdu.type, body) || !add_head(out, pdu) ||
      !add_header(out, SEQUENCE_TYPE, bindings) || !add_bindings(out, pdu.var_bind_list)) {
    return out.spoilt() ? BuildResult::wrong_sizes : BuildResult::failed;
  }
  assert(out.full());  // the size pass and the write pass agree
  pdu.packlet = packlet.release();
  return BuildResult::done;
}

}  // namespace

int AddLen(unsigned char** cursor, std::int16_t lenlen, std::int32_t length) {
  return write_at(cursor, [=](BerWriter& out) { return add_len(out, lenlen, length); });
}

int AddInt(unsigned char** cursor, std::int16_t tag, std::int32_t value) {
  return write_at(cursor, [=](BerWriter& out) { return add_int(out, tag, value); });
}

int AddUInt(unsigned char** cursor, std::int16_t tag, std::uint32_t value) {
  return write_at(cursor, [=](BerWriter& out) { return add_uint(out, tag, value); });
}

int AddUInt64(unsigned char** cursor, std::int16_t tag, const UInt64* value) {
  return write_at(cursor, [=](BerWriter& out) { return add_uint64(out, tag, value); });
}

int AddNull(unsigned char** cursor, std::int16_t tag) {
  return write_at(cursor, [=](BerWriter& out) { return add_null(out, tag); });
}

int AddOctetString(unsigned char** cursor, std::int16_t tag, const OctetString* string) {
  return write_at(cursor, [=](BerWriter& out) { return add_octet_string(out, tag, string); });
}

int AddOID(unsigned char** cursor, std::int16_t tag, const OID* oid) {
  return write_at(cursor, [=](BerWriter& out) { return add_oid(out, tag, oid, 0); });
}

int AddVarBind(unsigned char** cursor, const VarBind* list, const Pdu* /*pdu*/) {
  return write_at(cursor, [=](BerWriter& out) { return add_bindings(out, list); });
}

int BuildPdu(Pdu* pdu) {
  BuildResult result = build(*pdu);
  if (result == BuildResult::wrong_sizes) {
    // The sizes of a decoded binding are the ones its sender used, which may have been longer or,
    // for an empty INTEGER, shorter than ours; or somebody has changed a value since.
    measure_bindings(pdu->var_bind_list);
    result = build(*pdu);
  }
  return result == BuildResult::done ? 0 : -1;
}

}  // namespace tally
