#include "snmp/free_lib.h"

#include <cstdlib>
#include <functional>

#include "snmp/debug.h"
#include "snmp/record.h"

namespace tally {
namespace {

// Tells whether `item` is a block of its own: neither null nor within the record's storage, whose
// very end counts as within.
template <typename Item>
bool separate(const Item* item, const Item* own, std::int32_t room) {
  const std::less<const Item*> before;
  return item != nullptr && (before(item, own) || before(own + room, item));
}

}  // namespace

void FreeOctetString(OctetString* string) {
  if (string == nullptr) return;
  if (separate(string->octet_ptr, own_bytes(string), string->room)) {
    ZN_LOG(APWARN, "freed octet string with separate octet_ptr\n");
    std::free(string->octet_ptr);
    string->octet_ptr = nullptr;
  }
  if (!string->in_binding) std::free(string);
}

void FreeOID(OID* oid) {
  if (oid == nullptr) return;
  if (separate(oid->oid_ptr, own_sids(oid), oid->room)) {
    ZN_LOG(APWARN, "freed oid with separate oid_ptr\n");
    std::free(oid->oid_ptr);
    oid->oid_ptr = nullptr;
  }
  if (!oid->in_binding) std::free(oid);
}

void FreeUInt64(UInt64* value) {
  std::free(value);
}

void FreeVarBind(VarBind* binding) {
  if (binding == nullptr) return;
  FreeOID(binding->name);
  switch (value_kind(binding->type)) {
    case ValueKind::oid:
      FreeOID(binding->value.oid_value);
      break;
    case ValueKind::octets:
      FreeOctetString(binding->value.os_value);
      break;
    case ValueKind::unsigned64:
      FreeUInt64(binding->value.uint64_value);
      break;
    default:
      break;
  }
  std::free(binding);
}

void FreeVarBindList(VarBind* list) {
  while (list != nullptr) {
    VarBind* const next = list->next_var;
    FreeVarBind(list);
    list = next;
  }
}

void FreePdu(Pdu* pdu) {
  if (pdu == nullptr) return;
  FreeOctetString(pdu->packlet);
  // The request words share the storage of the trap's pointers: only the type tells them apart.
  if (pdu_form(pdu->type) == PduForm::trap) {
    FreeOID(pdu->enterprise);
    FreeOctetString(pdu->agent_addr);
  }
  FreeVarBindList(pdu->var_bind_list);
  std::free(pdu);
}

}  // namespace tally
