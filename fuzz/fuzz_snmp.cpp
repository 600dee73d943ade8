// Any bytes as each record of the SNMP library: a community message, a PDU, an OBJECT IDENTIFIER.
// Their tags differ, so the parsers share one corpus.
#include "property.h"
#include "snmp/ber_vectors.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

// Both community versions, so that the table has more than one row.
const SnmpVersionTable kVersions = {2,
                                    {0, 1},
                                    {},
                                    {ZnParseV1SnmpMessage, ZnParseV1SnmpMessage},
                                    {ZnBuildV1SnmpMessage, ZnBuildV1SnmpMessage}};

void check_chain(const Pdu& pdu, std::size_t size) {
  demand(pdu.packlet == nullptr, "nothing is encoded yet");
  std::int32_t count = 0;
  const VarBind* last = nullptr;
  for (const VarBind* binding = pdu.var_bind_list; binding; binding = binding->next_var) {
    ++count;
    last = binding;
    demand(value_kind(binding->type) != ValueKind::illegal, "a known value type");
    demand(binding->name->length >= 2 && binding->name->length <= kMaxSubIds,
           "a name of 2 to 128 sub-identifiers");
    demand(binding->data_length == binding->name_size + binding->value_size &&
               static_cast<std::size_t>(binding->data_length) < size,
           "sizes that the packet can hold");
    demand(binding->type != IP_ADDR_PRIM_TYPE || binding->value.os_value->length == 4,
           "addresses of 4 bytes");
  }
  demand(count == pdu.num_varbinds && last == pdu.var_bind_end_ptr, "count and tail of the chain");
}

// Decode, encode again, decode: the same PDU, and from then on the same bytes. Returns the PDU when
// it was built; not every PDU that can be read can be.
PduPtr check_pdu(const unsigned char* bytes, std::size_t size) {
  PduPtr first(ZnParsePdu(bytes, static_cast<std::int32_t>(size)));
  if (first == nullptr) return nullptr;
  check_chain(*first, size);
  const bool built = BuildPdu(first.get()) == 0;
  demand(built == (first->packlet != nullptr), "a packlet exactly when built");
  if (!built) return nullptr;
  const PduPtr second(ZnParsePdu(first->packlet->octet_ptr, first->packlet->length));
  demand(second != nullptr && text_of(first.get()) == text_of(second.get()), "the same PDU");
  demand(BuildPdu(second.get()) == 0 && text_of(first->packlet) == text_of(second->packlet),
         "the same bytes");
  return first;
}

SnmpMessagePtr parse(const unsigned char* bytes, std::size_t size) {
  SnmpMessagePtr message(
      ZnParseSnmpMessage(&kVersions, nullptr, nullptr, bytes, static_cast<std::int32_t>(size)));
  demand(message != nullptr, "a record for any bytes");
  demand((message->packlet != nullptr) == (message->status == kParseSuccess),
         "a packlet exactly with success");
  return message;
}

// Always a record, with a PDU or a reason; built again and parsed, the same message.
void check_message(const unsigned char* bytes, std::size_t size) {
  const SnmpMessagePtr first = parse(bytes, size);
  if (first->packlet == nullptr) return;
  const OctetString& packlet = *first->packlet;
  const auto end = static_cast<std::size_t>(first->pdu_offset + packlet.length);
  demand(first->pdu_offset > 0 && end <= size, "the PDU is in the packet");
  demand(packlet.octet_ptr[packlet.length] == 0, "a zero behind the PDU");
  const PduPtr pdu = check_pdu(packlet.octet_ptr, static_cast<std::size_t>(packlet.length));
  if (pdu == nullptr) return;

  const SnmpMessagePtr second(ZnCreateV2cSnmpMessage(CloneOctetString(first->community), nullptr));
  second->version = first->version;
  if (ZnBuildSnmpMessage(second.get(), pdu.get(), &kVersions) != 0) {
    demand(second->packlet == nullptr, "no packlet after a failure");
    // A number that was sent in too few bytes may make the encoding longer than a packet.
    demand(size > static_cast<std::size_t>(zn_pkt_size) / 2, "what fits a packet is built");
    return;
  }
  const SnmpMessagePtr third =
      parse(second->packlet->octet_ptr, static_cast<std::size_t>(second->packlet->length));
  demand(third->packlet != nullptr, "what was built can be parsed");
  demand(third->version == first->version && text_of(third->community) == text_of(first->community),
         "the same version and community");
  demand(text_of(third->packlet) == text_of(pdu->packlet), "the same PDU bytes");
}

// The vectors of the unit tests say what is read.
void check_oid(const unsigned char* bytes, std::size_t size) {
  const unsigned char* cursor = bytes;
  const OidPtr oid(ParseOID(&cursor, bytes + size));
  demand(cursor >= bytes && cursor <= bytes + size, "the cursor stays inside");
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tally::check_message(data, size);
  tally::check_pdu(data, size);
  tally::check_oid(data, size);
  return 0;
}
