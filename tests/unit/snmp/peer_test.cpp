// Independent software on the other side: libsnmp decodes what we encode and the other way round,
// and a real snmpd answers the client of the library's page.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-includes.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "ber_vectors.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

const SnmpVersionTable kVersions = {2,
                                    {0, 1},
                                    {},
                                    {ZnParseV1SnmpMessage, ZnParseV1SnmpMessage},
                                    {ZnBuildV1SnmpMessage, ZnBuildV1SnmpMessage}};

Bytes message_of(Pdu* pdu, std::int32_t version) {
  EXPECT_EQ(BuildPdu(pdu), 0);
  const SnmpMessagePtr message(ZnCreateV2cSnmpMessage(MakeOctetStringFromText("kivrel"), nullptr));
  message->version = version;
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu, &kVersions), 0);
  const OctetString& whole = *message->packlet;
  return Bytes(whole.octet_ptr, whole.octet_ptr + whole.length);
}

// A PDU of libsnmp, and a session to parse and build it with.
class Peer : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    setenv("MIBS", "", 1);
    init_snmp("peer_test");
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.version = SNMP_VERSION_2c;
    wanted.peername = const_cast<char*>("udp:127.0.0.1:9");
    wanted.community = reinterpret_cast<u_char*>(const_cast<char*>("kivrel"));
    wanted.community_len = 6;
    session_ = snmp_open(&wanted);
    ASSERT_NE(session_, nullptr);
  }
  static void TearDownTestSuite() {
    snmp_close(session_);
    snmp_shutdown("peer_test");
  }

  static netsnmp_pdu* parse(Bytes bytes, long version) {
    session_->version = version;
    auto* const pdu = static_cast<netsnmp_pdu*>(std::calloc(1, sizeof(netsnmp_pdu)));
    EXPECT_EQ(snmp_parse(static_cast<session_list*>(snmp_sess_pointer(session_)), session_, pdu,
                         bytes.data(), bytes.size()),
              0);
    return pdu;
  }

  static Bytes build(netsnmp_pdu* pdu) {
    std::size_t room = 4096;
    std::size_t used = 0;
    auto* buffer = static_cast<u_char*>(std::malloc(room));
    EXPECT_EQ(snmp_build(&buffer, &room, &used, session_, pdu), 0);
    const Bytes bytes(buffer + room - used, buffer + room);
    std::free(buffer);
    return bytes;
  }

  static netsnmp_session* session_;
};
netsnmp_session* Peer::session_ = nullptr;

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
TEST_F(Peer, LibsnmpAgreesOnEveryTypeAndPdu) {
  for (const std::int16_t type :
       {GET_REQUEST_PDU, GET_NEXT_REQUEST_PDU, RESPONSE_PDU, SET_REQUEST_PDU, GET_BULK_REQUEST_PDU,
        INFORM_REQUEST_PDU, SNMPV2_TRAP_PDU, REPORT_PDU}) {
    SCOPED_TRACE(type);
    const PduPtr ours = every_type(type);
    const Bytes bytes = message_of(ours.get(), 1);
    netsnmp_pdu* const theirs = parse(bytes, SNMP_VERSION_2c);
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
    EXPECT_EQ(buildable ? build(theirs) : bytes, bytes);
    snmp_free_pdu(theirs);
  }
}

TEST_F(Peer, LibsnmpAgreesOnTraps) {
  const PduPtr ours(MakePdu(TRAP_PDU, 0, 0, 0, oid({1, 3, 6, 1, 4, 1, 32473}).release(),
                            MakeOctetStringFromHex("7f00000b"), 6, -42, 0x80000000));
  const Bytes bytes = message_of(ours.get(), 0);
  netsnmp_pdu* const theirs = parse(bytes, SNMP_VERSION_1);
  EXPECT_EQ(theirs->command, SNMP_MSG_TRAP);
  EXPECT_EQ(theirs->enterprise_length, 7U);
  EXPECT_EQ(tally::text_of(theirs->agent_addr, 4), "7F 00 00 0B");
  EXPECT_EQ(theirs->trap_type, 6);
  EXPECT_EQ(theirs->specific_type, -42);
  EXPECT_EQ(static_cast<std::uint32_t>(theirs->time), 0x80000000);
  EXPECT_EQ(build(theirs), bytes);
  snmp_free_pdu(theirs);
}

std::string output_of(const std::string& command) {
  std::FILE* const pipe = popen(command.c_str(), "r");
  std::string text;
  char part[4096];
  for (std::size_t n = 0; (n = std::fread(part, 1, sizeof part, pipe)) > 0;) text.append(part, n);
  pclose(pipe);
  return text;
}

// Debian's snmpd on loopback for the life of the object.
class Agent {
 public:
  static constexpr int kPort = 51161;

  Agent() {
    child_ = fork();
    if (child_ == 0) {
      execl(SUPERVISOR, SUPERVISOR, "--listen", "udp:127.0.0.1:51161", "--config", "sysName tally",
            static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~Agent() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

 private:
  pid_t child_ = -1;
};

// The client says the up-time: days, hours, minutes, seconds, hundredths. It is asked until the
// agent has started.
TEST(Snmpd, AnswersTheClientOfTheLibrarysPage) {
  if (std::system("command -v snmpd >/dev/null 2>&1") != 0) GTEST_SKIP() << "no snmpd";
  const Agent agent;
  const std::string client = "ZN_SNMP_TEST_PORT=" + std::to_string(Agent::kPort) + " " SNMP_CLIENT;
  const std::string none = "no up-time from 127.0.0.1\n";
  std::string said = none;
  for (int attempt = 0; attempt < 10 && said == none; ++attempt) {
    said = output_of(client + " 127.0.0.1 kivrel 2>&1");
  }
  EXPECT_THAT(said, testing::MatchesRegex("  0 00:0[01]:[0-5][0-9]\\.[0-9][0-9]\n"));
  EXPECT_EQ(output_of(client + " 127.0.0.1 wrong 2>&1"), none);
}

}  // namespace
}  // namespace tally
