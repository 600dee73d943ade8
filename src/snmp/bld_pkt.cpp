#include "snmp/bld_pkt.h"

#include <cassert>
#include <cstring>
#include <span>

#include "snmp/ber_size.h"
#include "snmp/debug.h"
#include "snmp/findlen.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {
namespace {

// Every writer takes the place to write to and returns the place after what it wrote, or null when
// it refuses (logs). The size pass has seen to it that there is room.

unsigned char* put_len(unsigned char* out, std::int16_t lenlen, std::int32_t length) {
  if (lenlen > 1) *out++ = static_cast<unsigned char>(0x7F + lenlen);
  for (int left = lenlen == 1 ? 1 : lenlen - 1; left > 0; --left) {
    *out++ = static_cast<unsigned char>(length >> (8 * (left - 1)));
  }
  return out;
}

// Writes the tag of an element and the length of its content, which is in range.
unsigned char* put_header(unsigned char* out, std::int16_t tag, std::int32_t content) {
  *out++ = static_cast<unsigned char>(tag);
  if (content > 0x7F) return put_len(out, length_size(content), content);
  *out++ = static_cast<unsigned char>(content);
  return out;
}

// Writes the last `content` bytes of a number, most significant first. The ninth, if there is one,
// is the 0 that keeps the value positive.
unsigned char* put_number(unsigned char* out, std::int16_t tag, int content, std::uint64_t bits) {
  out = put_header(out, tag, content);
  if (content > 8) *out++ = 0;
  for (int left = content > 8 ? 8 : content; left > 0; --left) {
    *out++ = static_cast<unsigned char>(bits >> (8 * (left - 1)));
  }
  return out;
}

unsigned char* put_int(unsigned char* out, std::int16_t tag, std::int32_t value) {
  return put_number(out, tag, int_content(value), static_cast<std::uint32_t>(value));
}

unsigned char* put_uint(unsigned char* out, std::int16_t tag, std::uint64_t value) {
  return put_number(out, tag, uint_content(value), value);
}

unsigned char* put_uint64(unsigned char* out, std::int16_t tag, const UInt64* value) {
  if (value != nullptr) return put_uint(out, tag, as_number(*value));
  ZN_LOG(APPACKET, "AddUInt64, NULL input\n");
  return nullptr;
}

unsigned char* put_octet_string(unsigned char* out, std::int16_t tag, const OctetString* string) {
  if (string == nullptr || DoLenLen(string->length) < 0 ||
      (string->octet_ptr == nullptr && string->length > 0)) {
    ZN_LOG(APPACKET, "AddOctetString,lenlen\n");
    return nullptr;
  }
  out = put_header(out, tag, string->length);
  const auto size = static_cast<std::size_t>(string->length);
  if (size > 0) std::memcpy(out, string->octet_ptr, size);
  return out + size;
}

// Writes an OID whose content has `content` bytes; -1 stands for one that cannot be measured.
unsigned char* put_oid(unsigned char* out, std::int16_t tag, const OID* oid, std::int32_t content) {
  if (oid == nullptr || oid->oid_ptr == nullptr || oid->length < 2) {
    ZN_LOG(APWARN, "%s: Attempting to encode oid with length < 2\n", "AddOID");
    return nullptr;
  }
  // Stricter than BER on purpose: the second is at most 39 even after a 2, so both always share one
  // byte.
  if (oid->oid_ptr[0] > 2 || oid->oid_ptr[1] > 39) {
    ZN_LOG(APWARN, "%s: illegal value for first two subids\n", "AddOID");
    return nullptr;
  }
  if (content < 0) {
    ZN_LOG(APPACKET, "%s: lenlen\n", "AddOID");
    return nullptr;
  }
  out = put_header(out, tag, content);
  *out++ = static_cast<unsigned char>(40 * oid->oid_ptr[0] + oid->oid_ptr[1]);
  for (const std::uint32_t subid : std::span(oid->oid_ptr + 2, oid->oid_ptr + oid->length)) {
    if (subid > 0x7F) {  // in base 128, all bytes but the last with bit 7 set
      for (int shift = 7 * (subid_size(subid) - 1); shift > 0; shift -= 7) {
        *out++ = static_cast<unsigned char>(0x80 | (subid >> shift & 0x7F));
      }
    }
    *out++ = static_cast<unsigned char>(subid & 0x7F);
  }
  return out;
}

unsigned char* put_value(unsigned char* out, const VarBind& binding) {
  const std::int16_t tag = binding.type;
  switch (value_kind(tag)) {
    case ValueKind::integer:
      return put_int(out, tag, binding.value.sl_value);
    case ValueKind::unsigned32:
      return put_uint(out, tag, binding.value.ul_value);
    case ValueKind::unsigned64:
      return put_uint64(out, tag, binding.value.uint64_value);
    case ValueKind::empty:
      return put_header(out, tag, 0);
    case ValueKind::oid:
      out = put_oid(out, tag, binding.value.oid_value, content_of(binding.value_size));
      if (out == nullptr) ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return out;
    case ValueKind::octets:
      out = put_octet_string(out, tag, binding.value.os_value);
      if (out == nullptr) ZN_LOG(APPACKET, "%s: AddOctetString\n", "AddVarBind");
      return out;
    case ValueKind::illegal:
      break;
  }
  ZN_LOG(APPACKET, "%s: value: Illegal type: 0x%x\n", "AddVarBind", static_cast<unsigned>(tag));
  return nullptr;
}

// Writes bindings whose sizes are right.
unsigned char* put_bindings(unsigned char* out, const VarBind* list) {
  for (; list != nullptr && out != nullptr; list = list->next_var) {
    out = put_header(out, SEQUENCE_TYPE, list->data_length);
    out = put_oid(out, OBJECT_ID_TYPE, list->name, content_of(list->name_size));
    if (out == nullptr) {
      ZN_LOG(APPACKET, "%s: AddOID\n", "AddVarBind");
      return nullptr;
    }
    out = put_value(out, *list);
  }
  return out;
}

// Moves a cursor to where a writer has come. Returns what an Add routine returns.
int moved(unsigned char** cursor, unsigned char* out) {
  if (out == nullptr) return -1;
  *cursor = out;
  return 0;
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

unsigned char* put_head(unsigned char* out, const Pdu& pdu) {
  if (pdu_form(pdu.type) == PduForm::request) {
    out = put_int(out, INTEGER_TYPE, pdu.request_id);
    out = put_int(out, INTEGER_TYPE, pdu.error_status);
    return put_int(out, INTEGER_TYPE, pdu.error_index);
  }
  out = put_oid(out, OBJECT_ID_TYPE, pdu.enterprise, oid_content(pdu.enterprise));
  if (out == nullptr) return nullptr;
  out = put_octet_string(out, IP_ADDR_PRIM_TYPE, pdu.agent_addr);
  out = put_int(out, INTEGER_TYPE, pdu.generic_trap);
  out = put_int(out, INTEGER_TYPE, pdu.specific_trap);
  return put_uint(out, TIME_TICKS_TYPE, pdu.time_ticks);
}

}  // namespace

int AddLen(unsigned char** cursor, std::int16_t lenlen, std::int32_t length) {
  return lenlen < 1 || lenlen > 4 ? -1 : moved(cursor, put_len(*cursor, lenlen, length));
}

int AddInt(unsigned char** cursor, std::int16_t tag, std::int32_t value) {
  return moved(cursor, put_int(*cursor, tag, value));
}

int AddUInt(unsigned char** cursor, std::int16_t tag, std::uint32_t value) {
  return moved(cursor, put_uint(*cursor, tag, value));
}

int AddUInt64(unsigned char** cursor, std::int16_t tag, const UInt64* value) {
  return moved(cursor, put_uint64(*cursor, tag, value));
}

int AddNull(unsigned char** cursor, std::int16_t tag) {
  return moved(cursor, put_header(*cursor, tag, 0));
}

int AddOctetString(unsigned char** cursor, std::int16_t tag, const OctetString* string) {
  return moved(cursor, put_octet_string(*cursor, tag, string));
}

int AddOID(unsigned char** cursor, std::int16_t tag, const OID* oid) {
  return moved(cursor, put_oid(*cursor, tag, oid, oid_content(oid)));
}

int AddVarBind(unsigned char** cursor, const VarBind* list, const Pdu* /*pdu*/) {
  for (const VarBind* binding = list; binding != nullptr; binding = binding->next_var) {
    if (DoLenLen(binding->data_length) < 0) {
      ZN_LOG(APPACKET, "%s: lenlen:\n", "AddVarBind");
      return -1;
    }
    // The caller made room by these sizes, which may be wrong.
    if (binding->name_size != FindLenOID(binding->name) ||
        binding->value_size != value_size(*binding) ||
        binding->data_length != binding->name_size + binding->value_size) {
      return -1;
    }
  }
  return moved(cursor, put_bindings(*cursor, list));
}

int BuildPdu(Pdu* pdu) {
  FreeOctetString(pdu->packlet);
  pdu->packlet = nullptr;
  // A decoded binding has the sizes that its sender used, and a caller may have changed a value.
  for (VarBind* binding = pdu->var_bind_list; binding; binding = binding->next_var) {
    binding->name_size = FindLenOID(binding->name);
    binding->value_size = value_size(*binding);
  }
  const std::int16_t bindings = FindLenVarBind(pdu->var_bind_list);
  if (bindings < 0) {
    ZN_LOG(APPACKET, "%s: varbindlen:\n", "BuildPdu");
    return -1;
  }
  const std::int32_t head = measure_head(*pdu);
  if (head < 0) return -1;
  // With bindings of 16-bit size and a short head no length here is out of range.
  const std::int32_t body = head + bindings + length_size(bindings) + 1;
  OctetStringPtr packlet(MakeOctetString(nullptr, body + length_size(body) + 1));
  if (packlet == nullptr) {
    ZN_LOG(APWARN, "%s: pdu_ptr->packlet MakeOctetString failed\n", "BuildPdu");
    return -1;
  }
  unsigned char* out = put_head(put_header(packlet->octet_ptr, pdu->type, body), *pdu);
  if (out != nullptr) {
    out = put_bindings(put_header(out, SEQUENCE_TYPE, bindings), pdu->var_bind_list);
  }
  if (out == nullptr) return -1;
  assert(out == packlet->octet_ptr + packlet->length);  // both passes agree
  pdu->packlet = packlet.release();
  return 0;
}

}  // namespace tally
