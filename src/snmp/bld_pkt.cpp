#include "snmp/bld_pkt.h"

#include <cassert>
#include <cstring>

#include "snmp/ber_writer.h"
#include "snmp/debug.h"
#include "snmp/findlen.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {
namespace {

bool add_len(BerWriter& out, int lenlen, std::int32_t length) {
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

// Writes the tag and length of an element and returns the place of its content, or null.
// Values up to 9 bytes have a length field of one byte.
unsigned char* add_short_header(BerWriter& out, std::int16_t tag, int content) {
  unsigned char* const next = out.reserve(static_cast<std::size_t>(content) + 2);
  if (next == nullptr) return nullptr;
  next[0] = static_cast<unsigned char>(tag);
  next[1] = static_cast<unsigned char>(content);
  return next + 2;
}

// Writes the tag and length of an element whose content may be longer.
bool add_header(BerWriter& out, std::int16_t tag, std::int16_t lenlen, std::int32_t content) {
  unsigned char* const place = out.reserve(1);
  if (place == nullptr) return false;
  *place = static_cast<unsigned char>(tag);
  return add_len(out, lenlen, content);
}

// Writes the last `content` bytes of a number, most significant first. The number is as wide as
// nine bytes could need: where a ninth is asked for it is the 0 that keeps the value positive.
bool add_number(BerWriter& out, std::int16_t tag, int content, std::uint64_t bits) {
  unsigned char* next = add_short_header(out, tag, content);
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
  if (value == nullptr) return false;
  return add_number(out, tag, uint_content(as_number(*value)), as_number(*value));
}

bool add_null(BerWriter& out, std::int16_t tag) {
  return add_short_header(out, tag, 0) != nullptr;
}

bool add_octet_string(BerWriter& out, std::int16_t tag, const OctetString* string) {
  const std::int16_t lenlen = string == nullptr ? std::int16_t{-1} : DoLenLen(string->length);
  if (lenlen < 0) {
    ZN_LOG(APPACKET, "AddOctetString,lenlen\n");
    return false;
  }
  if (!add_header(out, tag, lenlen, string->length)) return false;
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

bool add_oid(BerWriter& out, std::int16_t tag, const OID* oid) {
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
  const std::int32_t content = oid_content(oid);
  const std::int16_t lenlen = content < 0 ? std::int16_t{-1} : DoLenLen(content);
  if (lenlen < 0) {
    ZN_LOG(APPACKET, "%s: lenlen\n", "AddOID");
    return false;
  }
  if (!add_header(out, tag, lenlen, content)) return false;
  unsigned char* next = out.reserve(static_cast<std::size_t>(content));
  if (next == nullptr) return false;
  *next++ = static_cast<unsigned char>(40 * oid->oid_ptr[0] + oid->oid_ptr[1]);
  for (std::int32_t i = 2; i < oid->length; ++i) next = put_subid(next, oid->oid_ptr[i]);
  return true;
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
      if (add_oid(out, tag, binding.value.oid_value)) return true;
      ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return false;
    case ValueKind::octets:
      if (add_octet_string(out, tag, binding.value.os_value)) return true;
      ZN_LOG(APPACKET, "%s: AddOctetString\n", "AddVarBind");
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
    const std::int16_t lenlen = DoLenLen(list->data_length);
    if (lenlen < 0) {
      ZN_LOG(APPACKET, "%s: lenlen:\n", "AddVarBind");
      return false;
    }
    if (!add_header(out, SEQUENCE_TYPE, lenlen, list->data_length)) return false;
    if (!add_oid(out, OBJECT_ID_TYPE, list->name)) {
      ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return false;
    }
    if (!add_value(out, *list)) return false;
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

// Returns the size of all bindings. Their own sizes are measured first: those of a decoded
// binding are the ones its sender used, which may have been longer or, for an empty INTEGER,
// shorter than ours; and a caller may have changed a value since.
std::int16_t measure_bindings(VarBind* list) {
  for (VarBind* binding = list; binding != nullptr; binding = binding->next_var) {
    binding->name_size = FindLenOID(binding->name);
    binding->value_size = value_size(*binding);
  }
  return FindLenVarBind(list);
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
      return add_oid(out, OBJECT_ID_TYPE, pdu.enterprise) &&
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
  return write_at(cursor, [=](BerWriter& out) { return add_oid(out, tag, oid); });
}

int AddVarBind(unsigned char** cursor, const VarBind* list, const Pdu* /*pdu*/) {
  return write_at(cursor, [=](BerWriter& out) { return add_bindings(out, list); });
}

int BuildPdu(Pdu* pdu) {
  FreeOctetString(pdu->packlet);
  pdu->packlet = nullptr;

  const std::int16_t bindings = measure_bindings(pdu->var_bind_list);
  if (bindings < 0) {
    ZN_LOG(APPACKET, "%s: varbindlen:\n", "BuildPdu");
    return -1;
  }
  const std::int16_t bindings_lenlen = DoLenLen(bindings);
  if (bindings_lenlen < 0) {
    ZN_LOG(APPACKET, "%s: varbindlenlen:\n", "BuildPdu");
    return -1;
  }
  const std::int32_t head = measure_head(*pdu);
  if (head < 0) return -1;
  const std::int32_t body = head + bindings + bindings_lenlen + 1;
  const std::int16_t lenlen = DoLenLen(body);
  if (lenlen < 0) {
    ZN_LOG(APPACKET, "%s: lenlen:\n", "BuildPdu");
    return -1;
  }

  pdu->packlet = MakeOctetString(nullptr, body + lenlen + 1);
  if (pdu->packlet == nullptr) {
    ZN_LOG(APWARN, "%s: pdu_ptr->packlet MakeOctetString failed\n", "BuildPdu");
    return -1;
  }

  BerWriter out(pdu->packlet->octet_ptr, static_cast<std::size_t>(pdu->packlet->length));
  if (!add_header(out, pdu->type, lenlen, body) || !add_head(out, *pdu) ||
      !add_header(out, SEQUENCE_TYPE, bindings_lenlen, bindings) ||
      !add_bindings(out, pdu->var_bind_list)) {
    FreeOctetString(pdu->packlet);
    pdu->packlet = nullptr;
    return -1;
  }
  assert(out.full());  // the size pass and the write pass agree
  return 0;
}

}  // namespace tally
