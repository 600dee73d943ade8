// Any bytes as a community message: always a record, with a PDU or a reason; built again and
// parsed, the same message.
#include "property.h"
#include "snmp/bld_pkt.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp/v1_msg.h"
#include "snmp/v2c_cmsg.h"
#include "snmp/zn_msg.h"
#include "snmp_equal.h"

namespace tally {
namespace {

// Both community versions, so that more than one row is looked at.
const SnmpVersionTable kVersions = {2,
                                    {0, 1},
                                    {},
                                    {ZnParseV1SnmpMessage, ZnParseV1SnmpMessage},
                                    {ZnBuildV1SnmpMessage, ZnBuildV1SnmpMessage}};

SnmpMessagePtr parse(const unsigned char* bytes, std::size_t size) {
  SnmpMessagePtr message(
      ZnParseSnmpMessage(&kVersions, nullptr, nullptr, bytes, static_cast<std::int32_t>(size)));
  demand(message != nullptr, "a record for any bytes");
  demand((message->packlet != nullptr) == (message->status == kParseSuccess),
         "a packlet exactly with success");
  return message;
}

void check_offsets(const SnmpMessage& message, std::size_t size) {
  const std::int32_t end = message.pdu_offset + message.packlet->length;
  demand(message.pdu_offset > 0 && static_cast<std::size_t>(end) <= size,
         "the PDU is in the packet");
  demand(message.packlet->octet_ptr[message.packlet->length] == 0, "a zero behind the PDU");
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const SnmpMessagePtr first = parse(data, size);
  if (first->packlet == nullptr) return 0;
  check_offsets(*first, size);
  const PduPtr pdu(ZnParsePdu(first->packlet->octet_ptr, first->packlet->length));
  if (pdu == nullptr || BuildPdu(pdu.get()) != 0) return 0;

  const SnmpMessagePtr second(ZnCreateV2cSnmpMessage(CloneOctetString(first->community), nullptr));
  second->version = first->version;
  if (ZnBuildSnmpMessage(second.get(), pdu.get(), &kVersions) != 0) {
    demand(second->packlet == nullptr, "no packlet after a failure");
    demand(size > static_cast<std::size_t>(zn_pkt_size) / 2, "what fits a packet is built");
    return 0;
  }
  const SnmpMessagePtr third =
      parse(second->packlet->octet_ptr, static_cast<std::size_t>(second->packlet->length));
  demand(third->packlet != nullptr, "what was built can be parsed");
  demand(third->version == first->version && equal(third->community, first->community),
         "the same version and community");
  demand(equal(third->packlet, pdu->packlet), "the same PDU bytes");
  return 0;
}
