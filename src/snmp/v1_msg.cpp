#include "snmp/v1_msg.h"

#include <cstring>

#include "snmp/bld_pkt.h"
#include "snmp/debug.h"
#include "snmp/findlen.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"

namespace tally {
namespace {

// What a reply's PDU cannot have of the packet beside what the request spent before its own.
constexpr std::int32_t kReplyReserve = 23;

}  // namespace

int ZnBuildV1SnmpMessage(SnmpMessage* message, const Pdu* pdu, void* /*arg*/) {
  const auto version = static_cast<std::uint32_t>(message->version);
  const std::int16_t community = FindLenOctetString(message->community);
  // Only tells whether there are encoded bytes, and logs when there are none.
  if (community < 0 || FindLenOctetString(pdu->packlet) < 0) return -1;
  const OctetString& encoded = *pdu->packlet;
  const std::int32_t content = FindLenUInt(version) + community + encoded.length;
  const std::int16_t lenlen = DoLenLen(content);
  message->packlet = MakeOctetString(nullptr, content + lenlen + 1);
  if (message->packlet == nullptr) {
    ZN_LOG(APWARN, "%s: malloc\n", "ZnBuildV1SnmpMessage");
    return -1;
  }
  unsigned char* cursor = message->packlet->octet_ptr;
  *cursor++ = static_cast<unsigned char>(SEQUENCE_TYPE);
  AddLen(&cursor, lenlen, content);
  AddUInt(&cursor, INTEGER_TYPE, version);
  AddOctetString(&cursor, OCTET_STRING_TYPE, message->community);
  std::memcpy(cursor, encoded.octet_ptr, static_cast<std::size_t>(encoded.length));
  return 0;
}

void ZnParseV1SnmpMessage(SnmpMessage* message, const SnmpVersionTable* /*table*/, void* /*arg*/,
                          void* /*arg2*/, void* /*arg3*/, const unsigned char* bytes,
                          std::int32_t /*length*/) {
  std::int16_t type = -1;
  message->community = ParseOctetString(&message->wptr, message->end_ptr, &type);
  if (message->community == nullptr) {
    ZN_LOG(APPACKET, "%s:  community\n", "ZnParseV1SnmpMessage");
    message->status = kParseAsn1Error;
    return;
  }
  message->pdu_offset = static_cast<std::int32_t>(message->wptr - bytes);
  message->max_pdu_size = zn_pkt_size - message->pdu_offset - kReplyReserve;
  message->packlet =
      MakeOctetString2(message->wptr, static_cast<std::int32_t>(message->end_ptr - message->wptr));
  if (message->packlet == nullptr) {
    ZN_LOG(APWARN, "%s: Failed to create snmp_msg PDU packlet\n", "ZnParseV1SnmpMessage");
    message->status = kParseNoPacklet;
  }
}

}  // namespace tally
