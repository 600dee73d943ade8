#include "snmp/prse_pkt.h"

#include "snmp/ber_parse.h"
#include "snmp/ber_reader.h"
#include "snmp/debug.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/record.h"

namespace tally {
namespace {

// Reads the value of a binding by its tag. Returns 0, or -1 (logs).
int parse_value(BerReader& in, VarBind& binding) {
  std::int16_t type = -1;
  switch (value_kind(in.peek())) {
    case ValueKind::integer:
      binding.value.sl_value = parse_int(in, &type);
      if (type < 0) {
        ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->value.sl_value\n");
        return -1;
      }
      break;
    case ValueKind::unsigned32:
      binding.value.ul_value = parse_uint(in, &type);
      if (type < 0) {
        ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->value.ul_value\n");
        return -1;
      }
      break;
    case ValueKind::oid:
      binding.value.oid_value = parse_oid(in);
      type = OBJECT_ID_TYPE;
      if (binding.value.oid_value == nullptr) {
        ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->value.oid_value\n");
        return -1;
      }
      break;
    case ValueKind::unsigned64:
      binding.value.uint64_value = parse_uint64(in);
      type = COUNTER_64_TYPE;
      if (binding.value.uint64_value == nullptr) {
        ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->value.uint64_value\n");
        return -1;
      }
      break;
    case ValueKind::octets:
      binding.value.os_value = parse_octet_string(in, &type);
      if (binding.value.os_value == nullptr) {
        ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->value.os_value\n");
        return -1;
      }
      break;
    case ValueKind::empty:
      if (parse_null(in, &type) < 0) {
        ZN_LOG(APPACKET, "ParseVarBind, ParseNull\n");
        return -1;
      }
      break;
    case ValueKind::illegal: {
      const int tag = in.take();
      if (in.overrun()) break;  // no tag at all
      ZN_LOG(APPACKET, "ParseVarBind, value: Illegal type: 0x%x\n", static_cast<unsigned>(tag));
      type = 0;
      const std::int32_t length = parse_length(in);
      if (length < 0) {
        ZN_LOG(APPACKET, "ParseVarBind, length error.\n");
        return -1;
      }
      (void)in.take_bytes(static_cast<std::size_t>(length));  // the caller tests the overrun
      break;
    }
  }
  binding.type = type;
  if (type == IP_ADDR_PRIM_TYPE && binding.value.os_value->length != 4) {
    ZN_LOG(APPACKET, "ParseVarBind, IP_ADDR_PRIM_TYPE value must be 4 bytes.\n");
    return -1;
  }
  return 0;
}

VarBind* parse_binding(BerReader& in) {
  std::int16_t type = -1;
  if (parse_sequence(in, &type) < 0) {
    ZN_LOG(APPACKET, "ParseVarBind, ParseSequence failure\n");
    return nullptr;
  }
  VarBindPtr binding(new_binding());
  if (binding == nullptr) {
    ZN_LOG(APWARN, "ParseVarBind, vb_ptr\n");
    return nullptr;
  }
  const unsigned char* const name_start = in.position();
  binding->name = parse_oid(in);
  if (binding->name == nullptr) {
    ZN_LOG(APPACKET, "ParseVarBind, vb_ptr->name\n");
    return nullptr;
  }
  const unsigned char* const value_start = in.position();
  if (parse_value(in, *binding) < 0) return nullptr;
  if (in.overrun()) {
    ZN_LOG(APWARN, "ParseVarBind, past end of packet.\n");
    return nullptr;
  }
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

// Reads an INTEGER of the PDU's head. False on failure, which logs `text`.
bool parse_word(BerReader& in, std::int32_t& word, const char* text) {
  std::int16_t type = -1;
  word = parse_int(in, &type);
  if (type < 0) ZN_LOG(APPACKET, "%s", text);
  return type >= 0;
}

bool parse_request_head(BerReader& in, Pdu& pdu) {
  return parse_word(in, pdu.request_id, "ParsePdu, request_id\n") &&
         parse_word(in, pdu.error_status, "ParsePdu, error_status\n") &&
         parse_word(in, pdu.error_index, "ParsePdu, error_index\n");
}

bool parse_trap_head(BerReader& in, Pdu& pdu) {
  std::int16_t type = -1;
  pdu.enterprise = parse_oid(in);
  if (pdu.enterprise == nullptr) {
    ZN_LOG(APPACKET, "ParsePdu, enterprise\n");
    return false;
  }
  pdu.agent_addr = parse_octet_string(in, &type);
  if (pdu.agent_addr == nullptr) {
    ZN_LOG(APPACKET, "ParsePdu, agent_addr\n");
    return false;
  }
  if (pdu.agent_addr->length != 4) {
    ZN_LOG(APPACKET, "ZnParsePdu, trap agent address length: %d\n", pdu.agent_addr->length);
    return false;
  }
  if (!parse_word(in, pdu.generic_trap, "ParsePdu, generic_trap\n") ||
      !parse_word(in, pdu.specific_trap, "ParsePdu, specific_trap\n")) {
    return false;
  }
  pdu.time_ticks = parse_uint(in, &type);
  if (type < 0) ZN_LOG(APPACKET, "ParsePdu, time-ticks\n");
  return type >= 0;
}

// Reads bindings up to the end of the PDU.
bool parse_bindings(BerReader& in, Pdu& pdu) {
  while (!in.at_end()) {
    VarBindPtr binding(parse_binding(in));
    if (binding == nullptr) {
      ZN_LOG(APPACKET, "ParsePdu, vb_ptr\n");
      return false;
    }
    if (binding->type == 0) {
      if (pdu_form(pdu.type) == PduForm::trap) {
        ZN_LOG(APPACKET, "ZnParsePdu, bad vb_ptr\n");
        return false;
      }
      ZN_LOG(APPACKET, "ZnParsePdu, bad type for vb_ptr\n");
      pdu.error_status = 99;
      pdu.error_index = pdu.num_varbinds + 1;
      binding->type = NULL_TYPE;
    }
    ++pdu.num_varbinds;
    LinkVarBind(&pdu, binding.release());
  }
  return true;
}

// Runs a parser at a cursor.
template <typename Parse>
auto parse_at(const unsigned char** cursor, const unsigned char* end, Parse parse) {
  BerReader in(*cursor, end);
  auto result = parse(in);
  *cursor = in.position();
  return result;
}

}  // namespace

int ParseType(const unsigned char** cursor, const unsigned char* end) {
  return parse_at(cursor, end, parse_type);
}

std::int32_t ParseLength(const unsigned char** cursor, const unsigned char* end) {
  return parse_at(cursor, end, [](BerReader& in) {
    const std::int32_t length = parse_length(in);
    if (length < 0 || !in.overrun()) return length;
    ZN_LOG(APWARN, "ParseLength, past end of packet.\n");
    return -1;
  });
}

std::int32_t ParseSequence(const unsigned char** cursor, const unsigned char* end,
                           std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_sequence(in, type); });
}

std::int32_t ParseImplicitSequence(const unsigned char** cursor, const unsigned char* end,
                                   std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_implicit_sequence(in, type); });
}

std::int32_t ParseInt(const unsigned char** cursor, const unsigned char* end, std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_int(in, type); });
}

std::uint32_t ParseUInt(const unsigned char** cursor, const unsigned char* end,
                        std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_uint(in, type); });
}

UInt64* ParseUInt64(const unsigned char** cursor, const unsigned char* end) {
  return parse_at(cursor, end, parse_uint64);
}

OctetString* ParseOctetString(const unsigned char** cursor, const unsigned char* end,
                              std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_octet_string(in, type); });
}

int ParseNull(const unsigned char** cursor, const unsigned char* end, std::int16_t* type) {
  return parse_at(cursor, end, [=](BerReader& in) { return parse_null(in, type); });
}

OID* ParseOID(const unsigned char** cursor, const unsigned char* end) {
  return parse_at(cursor, end, parse_oid);
}

VarBind* ParseVarBind(const unsigned char** cursor, const unsigned char* end) {
  return parse_at(cursor, end, parse_binding);
}

Pdu* ZnParsePdu(const unsigned char* bytes, std::int32_t length) {
  if (bytes == nullptr || length <= 0) {
    ZN_LOG(APPACKET, "ZnParsePdu, bad packet\n");
    return nullptr;
  }
  BerReader in(bytes, bytes + length);
  PduPtr pdu(new_record<Pdu>());
  if (pdu == nullptr) {
    ZN_LOG(APWARN, "ParsePdu, pdu_ptr malloc\n");
    return nullptr;
  }
  const int type = parse_type(in);
  if (type < 0) {
    ZN_LOG(APPACKET, "ParsePdu, pdu_type\n");
    return nullptr;
  }
  const PduForm form = pdu_form(type);
  if (form == PduForm::illegal) {
    ZN_LOG(APPACKET, "ParsePdu, bad pdu_type: %x\n", static_cast<unsigned>(type));
    return nullptr;
  }
  pdu->type = static_cast<std::int16_t>(type);
  const std::int32_t content = parse_length(in);
  if (content < 0) {
    ZN_LOG(APPACKET, "ParsePdu, length\n");
    return nullptr;
  }
  if (!in.narrow(static_cast<std::size_t>(content))) {
    ZN_LOG(APPACKET, "ParsePdu, bad length:\n");
    return nullptr;
  }
  if (!(form == PduForm::trap ? parse_trap_head(in, *pdu) : parse_request_head(in, *pdu))) {
    return nullptr;
  }
  std::int16_t sequence = -1;
  if (parse_sequence(in, &sequence) < 0) {
    ZN_LOG(APPACKET, "ParsePdu, ParseSequence failure\n");
    return nullptr;
  }
  if (!parse_bindings(in, *pdu)) return nullptr;
  return pdu.release();
}

}  // namespace tally
