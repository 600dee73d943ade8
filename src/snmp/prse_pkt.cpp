#include "snmp/prse_pkt.h"

#include "snmp/ber_parse.h"
#include "snmp/ber_reader.h"
#include "snmp/debug.h"
#include "snmp/free_lib.h"
#include "snmp/record.h"

namespace tally {
namespace {

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
  for (VarBind** place = &pdu.var_bind_list; !in.at_end(); place = &(*place)->next_var) {
    VarBind* const binding = parse_binding(in);
    if (binding == nullptr) {
      ZN_LOG(APPACKET, "ParsePdu, vb_ptr\n");
      return false;
    }
    *place = pdu.var_bind_end_ptr = binding;
    ++pdu.num_varbinds;
    if (binding->type != 0) continue;
    if (pdu_form(pdu.type) == PduForm::trap) {
      ZN_LOG(APPACKET, "ZnParsePdu, bad vb_ptr\n");
      return false;
    }
    ZN_LOG(APPACKET, "ZnParsePdu, bad type for vb_ptr\n");
    pdu.error_status = 99;
    pdu.error_index = pdu.num_varbinds;
    binding->type = NULL_TYPE;
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
    if (!in.at_end()) return parse_length(in);
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
  // Without its length the PDU runs past the end.
  const std::int32_t content = in.at_end() ? INT32_MAX : parse_length(in);
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
