// Independent software on the other side: libsnmp encodes the same values to the same bytes. What
// the bytes mean to our own decoder, the vectors and the round trips say.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>

#include "ber_vectors.h"

namespace tally {
namespace {

std::vector<::oid> sids_of(const OID& oid) {
  return {oid.oid_ptr, oid.oid_ptr + oid.length};
}

void add(netsnmp_pdu* pdu, const VarBind& binding) {
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

TEST(Peer, LibsnmpAgreesOnEveryTypeAndPdu) {
  setenv("MIBS", "", 1);
  netsnmp_session session;
  snmp_sess_init(&session);
  const std::string community = "kivrel";
  session.version = SNMP_VERSION_2c;
  for (const std::int16_t type :
       {GET_REQUEST_PDU, GET_NEXT_REQUEST_PDU, RESPONSE_PDU, SET_REQUEST_PDU, GET_BULK_REQUEST_PDU,
        INFORM_REQUEST_PDU, SNMPV2_TRAP_PDU}) {
    const PduPtr ours = every_type(type);
    netsnmp_pdu* const theirs = snmp_pdu_create(type);
    theirs->version = session.version;
    theirs->community = static_cast<u_char*>(netsnmp_memdup(community.data(), community.size()));
    theirs->community_len = community.size();
    theirs->reqid = ours->request_id;
    theirs->errstat = theirs->errindex = 0;
    for (const VarBind* b = ours->var_bind_list; b; b = b->next_var) add(theirs, *b);
    std::size_t room = 4096;
    std::size_t used = 0;
    auto* buffer = static_cast<u_char*>(std::malloc(room));
    EXPECT_EQ(snmp_build(&buffer, &room, &used, &session, theirs), 0);
    EXPECT_EQ(text_of(message_of(*ours, community)->packlet), text_of(buffer + room - used, used))
        << type;
    std::free(buffer);
    snmp_free_pdu(theirs);
  }
}

}  // namespace
}  // namespace tally
