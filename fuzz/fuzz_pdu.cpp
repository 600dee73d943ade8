// Any bytes as a PDU: decoded, looked at, freed.
//
// The chain and its tail agree with the count, and every binding is of a known type: an unknown
// one has become a NULL, with the error status that says so.
#include "property.h"
#include "snmp/free_lib.h"
#include "snmp/prse_pkt.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const PduPtr pdu(ZnParsePdu(data, static_cast<std::int32_t>(size)));
  if (pdu == nullptr) return 0;
  demand(pdu->packlet == nullptr, "nothing is encoded yet");
  demand(pdu_form(pdu->type) != PduForm::illegal, "a known PDU type");
  std::int32_t count = 0;
  const VarBind* last = nullptr;
  for (const VarBind* binding = pdu->var_bind_list; binding; binding = binding->next_var) {
    ++count;
    last = binding;
    demand(value_kind(binding->type) != ValueKind::illegal, "a known value type");
    demand(binding->name != nullptr && binding->name->length >= 2 &&
               binding->name->length <= kMaxSubIds,
           "a name of 2 to 128 sub-identifiers");
    demand(binding->data_length == binding->name_size + binding->value_size &&
               static_cast<std::size_t>(binding->data_length) < size,
           "sizes that the packet can hold");
    demand(binding->type != IP_ADDR_PRIM_TYPE || binding->value.os_value->length == 4,
           "addresses of 4 bytes");
  }
  demand(count == pdu->num_varbinds && last == pdu->var_bind_end_ptr,
         "count and tail of the chain");
  return 0;
}
