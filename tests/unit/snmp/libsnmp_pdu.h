// PDUs of Debian's libsnmp, for the test and the benchmark that hold the codec against it.
#pragma once

#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "snmp/free_lib.h"

namespace tally {

inline std::vector<::oid> sids_of(const OID& oid) {
  return {oid.oid_ptr, oid.oid_ptr + oid.length};
}

inline void add(netsnmp_pdu* pdu, const VarBind& binding) {
  const std::vector<::oid> name = sids_of(*binding.name);
  const auto add_value = [&](const void* value, std::size_t size) {
    snmp_pdu_add_variable(pdu, name.data(), name.size(), static_cast<u_char>(binding.type), value,
                          size);
  };
  const auto& value = binding.value;
  const ValueKind kind = value_kind(binding.type);
  if (kind == ValueKind::octets) {
    add_value(value.os_value->octet_ptr, static_cast<std::size_t>(value.os_value->length));
  } else if (kind == ValueKind::oid) {
    const std::vector<::oid> sids = sids_of(*value.oid_value);
    add_value(sids.data(), sids.size() * sizeof(::oid));
  } else if (kind == ValueKind::unsigned64) {
    const counter64 halves = {value.uint64_value->big_end, value.uint64_value->little_end};
    add_value(&halves, sizeof halves);
  } else {
    add_value(&value, kind == ValueKind::empty ? 0 : sizeof value.ul_value);
  }
}

using TheirPdu = std::unique_ptr<netsnmp_pdu, Freer<snmp_free_pdu>>;

// theirs_of makes the PDU of libsnmp that means what ours means. A TRAP_PDU is of SNMPv1, any other
// of SNMPv2c.
inline TheirPdu theirs_of(const Pdu& ours) {
  TheirPdu theirs(snmp_pdu_create(ours.type));
  theirs->version = SNMP_VERSION_2c;
  if (ours.type == TRAP_PDU) {
    theirs->version = SNMP_VERSION_1;
    const std::vector<::oid> enterprise = sids_of(*ours.enterprise);
    theirs->enterprise = snmp_duplicate_objid(enterprise.data(), enterprise.size());
    theirs->enterprise_length = enterprise.size();
    std::copy_n(ours.agent_addr->octet_ptr, 4, theirs->agent_addr);
    theirs->trap_type = ours.generic_trap;
    theirs->specific_type = ours.specific_trap;
    theirs->time = ours.time_ticks;
  } else {
    theirs->reqid = ours.request_id;
    theirs->errstat = ours.error_status;
    theirs->errindex = ours.error_index;
  }
  for (const VarBind* b = ours.var_bind_list; b != nullptr; b = b->next_var) add(theirs.get(), *b);
  return theirs;
}

}  // namespace tally
