// Any bytes as each record of the SNMP library: a community message, a PDU, an OBJECT IDENTIFIER.
// Their tags differ, so the parsers share one corpus.
#include "property.h"
#include "snmp/ber_vectors.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

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

// Decode, encode again, decode: the same PDU, and from then on the same bytes. Not every PDU that
// can be read can be built.
void check_pdu(const unsigned char* bytes, std::size_t size) {
  const PduPtr first(ZnParsePdu(bytes, static_cast<std::int32_t>(size)));
  if (first == nullptr) return;
  check_chain(*first, size);
  const bool built = BuildPdu(first.get()) == 0;
  demand(built == (first->packlet != nullptr), "a packlet exactly when built");
  if (!built) return;
  const PduPtr second(ZnParsePdu(first->packlet->octet_ptr, first->packlet->length));
  demand(second != nullptr && text_of(first.get()) == text_of(second.get()), "the same PDU");
  demand(BuildPdu(second.get()) == 0 && text_of(first->packlet) == text_of(second->packlet),
         "the same bytes");
}

// Always a record, with a PDU or a reason.
void check_message(const unsigned char* bytes, std::size_t size) {
  const SnmpMessagePtr message(
      ZnParseSnmpMessage(&kV2cOnly, nullptr, nullptr, bytes, static_cast<std::int32_t>(size)));
  demand(message != nullptr, "a record for any bytes");
  demand((message->packlet != nullptr) == (message->status == kParseSuccess),
         "a packlet exactly with success");
  if (message->packlet == nullptr) return;
  const OctetString& packlet = *message->packlet;
  const auto end = static_cast<std::size_t>(message->pdu_offset + packlet.length);
  demand(message->pdu_offset > 0 && end <= size, "the PDU is in the packet");
  demand(packlet.octet_ptr[packlet.length] == 0, "a zero behind the PDU");
  check_pdu(packlet.octet_ptr, static_cast<std::size_t>(packlet.length));
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
