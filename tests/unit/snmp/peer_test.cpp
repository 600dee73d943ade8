// Independent software on the other side: libsnmp decodes what we encode and the other way round,
// and a real snmpd answers the documented client.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-includes.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

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

std::string dotted(const ::oid* sids, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i)
    text.append(i > 0 ? "." : "").append(std::to_string(sids[i]));
  return text;
}

// What libsnmp understood, in the text form of our own values.
std::string text_of(const netsnmp_variable_list& variable) {
  const netsnmp_vardata& value = variable.val;
  const std::string text =
      dotted(variable.name, variable.name_length) + "=" + std::to_string(variable.type) + ":";
  switch (value_kind(variable.type)) {
    case ValueKind::integer:
      return text + std::to_string(*value.integer);
    case ValueKind::unsigned32:
      return text + std::to_string(static_cast<std::uint32_t>(*value.integer));
    case ValueKind::unsigned64:
      return text + std::to_string(value.counter64->high << 32 | value.counter64->low);
    case ValueKind::octets:
      return text + tally::text_of(value.string, variable.val_len);
    case ValueKind::oid:
      return text + dotted(value.objid, variable.val_len / sizeof(::oid));
    default:
      return text;
  }
}

// There and back: libsnmp decodes our bytes to the same values and encodes them to the same bytes,
// which we decode to what we began with.
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
      EXPECT_EQ(text_of(*variable), tally::text_of(*b));
      variable = variable->next_variable;
    }
    EXPECT_EQ(variable, nullptr);
    const bool buildable = type != REPORT_PDU;  // libsnmp makes none for SNMPv2c
    const Bytes back = buildable ? build(theirs) : bytes;
    snmp_free_pdu(theirs);
    EXPECT_EQ(back, bytes);
    const SnmpMessagePtr message(ZnParseSnmpMessage(&kVersions, nullptr, nullptr, back.data(),
                                                    static_cast<std::int32_t>(back.size())));
    ASSERT_NE(message->packlet, nullptr);
    const PduPtr again(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(tally::text_of(*again), tally::text_of(*ours));
  }
}

TEST_F(Peer, LibsnmpAgreesOnTraps) {
  const PduPtr ours(MakePdu(TRAP_PDU, 0, 0, 0, oid({1, 3, 6, 1, 4, 1, 32473}).release(),
                            MakeOctetStringFromHex("7f00000b"), 6, -42, 0x80000000));
  LinkVarBind(ours.get(), MakeVarBindWithNull(oid({1, 3, 6}).get(), nullptr));
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

// A real agent on loopback for the life of the object.
class Agent {
 public:
  Agent() {
    directory_ =
        std::filesystem::temp_directory_path() / ("tally_snmpd_" + std::to_string(getpid()));
    std::filesystem::create_directory(directory_);
    const std::string config = (directory_ / "snmpd.conf").string();
    std::ofstream(config) << "rocommunity kivrel 127.0.0.1\n"
                             "sysServices 72\n"
                             "sysName tally\n";
    child_ = fork();
    if (child_ == 0) {
      setenv("MIBS", "", 1);
      setenv("SNMP_PERSISTENT_DIR", directory_.c_str(), 1);
      execlp("snmpd", "snmpd", "-f", "-C", "-c", config.c_str(), "-Lf",
             (directory_ / "log").c_str(), "-I",
             "system_mib,sysORTable,snmp_mib,vacm_conf,vacm_context", "udp:127.0.0.1:51161",
             static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~Agent() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    std::filesystem::remove_all(directory_);
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

 private:
  std::filesystem::path directory_;
  pid_t child_ = -1;
};

// The client of the library's page says the up-time: days, hours, minutes, seconds, hundredths.
TEST(Snmpd, AnswersTheClientOfThePage) {
  if (std::system("command -v snmpd >/dev/null") != 0) GTEST_SKIP() << "snmpd is not installed";
  const Agent agent;
  const std::string client = "ZN_SNMP_TEST_PORT=51161 " SNMP_CLIENT " 127.0.0.1 ";
  std::string up_time;
  for (int attempt = 0; attempt < 10 && up_time.empty(); ++attempt) {  // while the agent starts
    up_time = output_of(client + "kivrel 2>/dev/null");
  }
  EXPECT_THAT(up_time, testing::MatchesRegex("  0 00:0[01]:[0-5][0-9]\\.[0-9][0-9]\n"));
  EXPECT_EQ(output_of(client + "wrong 2>&1"), "no up-time from 127.0.0.1\n");
}

}  // namespace
}  // namespace tally
