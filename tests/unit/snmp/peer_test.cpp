// Independent software on the other side: libsnmp decodes what we encode and the other way round.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>

#include "ber_vectors.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

const SnmpVersionTable kVersions = {1, {1}, {}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

Bytes message_of(Pdu* pdu) {
  EXPECT_EQ(BuildPdu(pdu), 0);
  const SnmpMessagePtr message(ZnCreateV2cSnmpMessage(MakeOctetStringFromText("kivrel"), nullptr));
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu, &kVersions), 0);
  const OctetString& whole = *message->packlet;
  return Bytes(whole.octet_ptr, whole.octet_ptr + whole.length);
}

// Makes a session of libsnmp, to parse and build with.
netsnmp_session* open_session() {
  setenv("MIBS", "", 1);
  init_snmp("peer_test");
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  wanted.version = SNMP_VERSION_2c;
  wanted.peername = const_cast<char*>("udp:127.0.0.1:9");
  wanted.community = reinterpret_cast<u_char*>(const_cast<char*>("kivrel"));
  wanted.community_len = 6;
  return snmp_open(&wanted);
}

netsnmp_pdu* parse(netsnmp_session* session, Bytes bytes) {
  auto* const pdu = static_cast<netsnmp_pdu*>(std::calloc(1, sizeof(netsnmp_pdu)));
  EXPECT_EQ(snmp_parse(static_cast<session_list*>(snmp_sess_pointer(session)), session, pdu,
                       bytes.data(), bytes.size()),
            0);
  return pdu;
}

Bytes build(netsnmp_session* session, netsnmp_pdu* pdu) {
  std::size_t room = 4096;
  std::size_t used = 0;
  auto* buffer = static_cast<u_char*>(std::malloc(room));
  EXPECT_EQ(snmp_build(&buffer, &room, &used, session, pdu), 0);
  const Bytes bytes(buffer + room - used, buffer + room);
  std::free(buffer);
  return bytes;
}

// What libsnmp understood, in the text form of our own values.
std::string text_of(const netsnmp_variable_list& variable) {
  std::string text;
  for (std::size_t i = 0; i < variable.name_length; ++i) {
    if (i > 0) text += '.';
    text += std::to_string(variable.name[i]);
  }
  text.append("=").append(std::to_string(variable.type)).append(":");
  switch (value_kind(variable.type)) {
    case ValueKind::integer:
      return text + std::to_string(*variable.val.integer);
    case ValueKind::unsigned32:
      return text + std::to_string(static_cast<std::uint32_t>(*variable.val.integer));
    case ValueKind::unsigned64:
      return text +
             std::to_string(variable.val.counter64->high << 32 | variable.val.counter64->low);
    case ValueKind::octets:
      return text + tally::text_of(variable.val.string, variable.val_len);
    case ValueKind::oid:
      for (std::size_t i = 0; i < variable.val_len / sizeof(::oid); ++i) {
        if (i > 0) text += '.';
        text += std::to_string(variable.val.objid[i]);
      }
      return text;
    default:
      return text;
  }
}

// libsnmp decodes our bytes to the same values, and encodes them to the same bytes.
TEST(Peer, LibsnmpAgreesOnEveryTypeAndPdu) {
  netsnmp_session* const session = open_session();
  ASSERT_NE(session, nullptr);
  for (const std::int16_t type :
       {GET_REQUEST_PDU, GET_NEXT_REQUEST_PDU, RESPONSE_PDU, SET_REQUEST_PDU, GET_BULK_REQUEST_PDU,
        INFORM_REQUEST_PDU, SNMPV2_TRAP_PDU, REPORT_PDU}) {
    SCOPED_TRACE(type);
    const PduPtr ours = every_type(type);
    const Bytes bytes = message_of(ours.get());
    netsnmp_pdu* const theirs = parse(session, bytes);
    ASSERT_EQ(theirs->command, type);
    EXPECT_EQ(theirs->reqid, ours->request_id);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(theirs->community), theirs->community_len),
              "kivrel");
    const netsnmp_variable_list* variable = theirs->variables;
    for (const VarBind* b = ours->var_bind_list; b; b = b->next_var) {
      ASSERT_NE(variable, nullptr);
      EXPECT_EQ(text_of(*variable), tally::text_of(b));
      variable = variable->next_variable;
    }
    EXPECT_EQ(variable, nullptr);
    const bool buildable = type != REPORT_PDU;  // libsnmp makes none for SNMPv2c
    EXPECT_EQ(buildable ? build(session, theirs) : bytes, bytes);
    snmp_free_pdu(theirs);
  }
  snmp_close(session);
  snmp_shutdown("peer_test");
}

}  // namespace
}  // namespace tally
