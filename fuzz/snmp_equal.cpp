#include "snmp_equal.h"

#include <algorithm>

namespace tally {
namespace {

bool equal(const VarBind& a, const VarBind& b) {
  if (a.type != b.type || !equal(a.name, b.name)) return false;
  switch (value_kind(a.type)) {
    case ValueKind::integer:
      return a.value.sl_value == b.value.sl_value;
    case ValueKind::unsigned32:
      return a.value.ul_value == b.value.ul_value;
    case ValueKind::unsigned64:
      return as_number(*a.value.uint64_value) == as_number(*b.value.uint64_value);
    case ValueKind::octets:
      return equal(a.value.os_value, b.value.os_value);
    case ValueKind::oid:
      return equal(a.value.oid_value, b.value.oid_value);
    case ValueKind::empty:
      return true;
    case ValueKind::illegal:
      break;
  }
  return false;
}

bool equal_heads(const Pdu& a, const Pdu& b) {
  if (a.type != b.type) return false;
  if (pdu_form(a.type) == PduForm::trap) {
    return equal(a.enterprise, b.enterprise) && equal(a.agent_addr, b.agent_addr) &&
           a.generic_trap == b.generic_trap && a.specific_trap == b.specific_trap &&
           a.time_ticks == b.time_ticks;
  }
  return a.request_id == b.request_id && a.error_status == b.error_status &&
         a.error_index == b.error_index;
}

}  // namespace

bool equal(const OID* a, const OID* b) {
  return std::equal(a->oid_ptr, a->oid_ptr + a->length, b->oid_ptr, b->oid_ptr + b->length);
}

bool equal(const OctetString* a, const OctetString* b) {
  return std::equal(a->octet_ptr, a->octet_ptr + a->length, b->octet_ptr, b->octet_ptr + b->length);
}

bool equal(const Pdu& a, const Pdu& b) {
  const VarBind* left = a.var_bind_list;
  const VarBind* right = b.var_bind_list;
  for (; left != nullptr && right != nullptr; left = left->next_var, right = right->next_var) {
    if (!equal(*left, *right)) return false;
  }
  return left == right && equal_heads(a, b);
}

bool encodable(const OID* oid) {
  return oid->length >= 2 && oid->oid_ptr[0] <= 2 && oid->oid_ptr[1] <= 39;
}

bool encodable(const Pdu& pdu) {
  if (pdu_form(pdu.type) == PduForm::trap && !encodable(pdu.enterprise)) return false;
  for (const VarBind* binding = pdu.var_bind_list; binding; binding = binding->next_var) {
    if (!encodable(binding->name)) return false;
    if (binding->type == OBJECT_ID_TYPE && !encodable(binding->value.oid_value)) return false;
  }
  return true;
}

}  // namespace tally
