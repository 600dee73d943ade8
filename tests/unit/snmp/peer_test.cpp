// Independent software on the other side: libsnmp decodes what we encode and the other way round,
// tshark judges our packets, and a real snmpd answers them.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-includes.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ber_vectors.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

using namespace snmpio;

const SnmpVersionTable kVersions = {2,
                                    {0, 1},
                                    {},
                                    {ZnParseV1SnmpMessage, ZnParseV1SnmpMessage},
                                    {ZnBuildV1SnmpMessage, ZnBuildV1SnmpMessage}};

const std::int16_t kRequestForms[] = {
    GET_REQUEST_PDU,      GET_NEXT_REQUEST_PDU, RESPONSE_PDU,    SET_REQUEST_PDU,
    GET_BULK_REQUEST_PDU, INFORM_REQUEST_PDU,   SNMPV2_TRAP_PDU, REPORT_PDU};

PduPtr sample_trap() {
  PduPtr pdu(MakePdu(TRAP_PDU, 0, 0, 0, oid({1, 3, 6, 1, 4, 1, 32473}).release(),
                     MakeOctetStringFromHex("7f00000b"), 6, -42, 0x80000000));
  LinkVarBind(pdu.get(), MakeVarBindWithNull(oid({1, 3, 6}).get(), nullptr));
  return pdu;
}

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

// There and back: libsnmp decodes our bytes to the same values and encodes them to the same bytes,
// which we decode to what we began with.
TEST_F(Peer, LibsnmpAgreesOnEveryTypeAndPdu) {
  for (const std::int16_t type : kRequestForms) {
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
  const PduPtr ours = sample_trap();
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

bool installed(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

// Writes packets as a capture of frames of a kind that tshark is told about (LINKTYPE_USER0).
void write_capture(const std::filesystem::path& path, const std::vector<Bytes>& packets) {
  std::ofstream file(path, std::ios::binary);
  const auto words = [&file](std::initializer_list<std::uint32_t> values) {
    for (const std::uint32_t value : values) {
      file.write(reinterpret_cast<const char*>(&value), sizeof value);
    }
  };
  words({0xA1B2C3D4U, 0x00040002U, 0U, 0U, 65535U, 147U});
  for (const Bytes& packet : packets) {
    const auto size = static_cast<std::uint32_t>(packet.size());
    words({0U, 0U, size, size});
    file.write(reinterpret_cast<const char*>(packet.data()),
               static_cast<std::streamsize>(packet.size()));
  }
}

TEST(Tshark, FindsNothingToComplainOf) {
  if (!installed("tshark")) GTEST_SKIP() << "tshark is not installed";
  std::vector<Bytes> packets;
  for (const std::int16_t type : kRequestForms) {
    packets.push_back(message_of(every_type(type).get(), 1));
  }
  packets.push_back(message_of(sample_trap().get(), 0));
  const auto path =
      std::filesystem::temp_directory_path() / ("tally_snmp_" + std::to_string(getpid()) + ".pcap");
  write_capture(path, packets);
  const std::string read =
      "tshark -n -o 'uat:user_dlts:\"User 0 (DLT=147)\",\"snmp\",\"0\",\"\",\"0\",\"\"' -r " +
      path.string() + " 2>/dev/null ";
  EXPECT_EQ(
      output_of(read +
                "-Y '_ws.malformed or _ws.expert.severity > 0x400000' -T fields -e frame.number"),
      "");
  EXPECT_EQ(output_of(read + "-T fields -e snmp.community"),
            "kivrel\nkivrel\nkivrel\nkivrel\nkivrel\nkivrel\nkivrel\nkivrel\nkivrel\n");
  EXPECT_EQ(output_of(read + "-c 3 -Y 'frame.number == 3' -T fields -e snmp.request_id "
                             "-e snmp.value.int -e snmp.value.g32 -e snmp.value.counter "
                             "-e snmp.value.timeticks -e snmp.value.ipv4"),
            "7\t-2147483647\t2147483649\t2147483649,4294967298\t2147483649\t97.98.99.100\n");
  std::filesystem::remove(path);
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

// Asks as a program does, up to a few times while the agent starts.
PduPtr ask(Pdu* request) {
  const Bytes bytes = message_of(request, 1);
  for (int attempt = 0; attempt < 10; ++attempt) {
    EXPECT_EQ(SendToIO(fd, bytes.data(), static_cast<std::int32_t>(bytes.size())), 1);
    while (GetResponse() == 2) {
      const SnmpMessagePtr message(
          ZnParseSnmpMessage(&kVersions, nullptr, nullptr, packet, packet_len));
      if (message->packlet == nullptr) continue;
      PduPtr pdu(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
      if (pdu != nullptr && pdu->request_id == request->request_id) return pdu;
    }
  }
  return nullptr;
}

PduPtr request(std::int16_t type, std::int32_t id, std::int32_t non_repeaters,
               std::int32_t repetitions, std::initializer_list<std::uint32_t> name) {
  PduPtr pdu(MakePdu(type, id, non_repeaters, repetitions, nullptr, nullptr, 0, 0, 0));
  LinkVarBind(pdu.get(), MakeVarBindWithNull(oid(name).get(), nullptr));
  return pdu;
}

TEST(Snmpd, AnswersOurRequests) {
  if (!installed("snmpd")) GTEST_SKIP() << "snmpd is not installed";
  const Agent agent;
  InitializeIO("peer_test", "localhost");
  agent_address.sin_port = htons(Agent::kPort);
  seconds = 1;

  const PduPtr get = ask(request(GET_REQUEST_PDU, 1, 0, 0, {1, 3, 6, 1, 2, 1, 1, 5, 0}).get());
  ASSERT_NE(get, nullptr) << "snmpd does not answer";
  EXPECT_EQ(text_of(*get), "A2 1 0 0 [1.3.6.1.2.1.1.5.0=4:74 61 6C 6C 79]");

  const PduPtr next = ask(request(GET_NEXT_REQUEST_PDU, 2, 0, 0, {1, 3, 6, 1, 2, 1, 1, 2}).get());
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(text_of(*next).find("A2 2 0 0 [1.3.6.1.2.1.1.2.0=6:1.3.6.1.4.1."), 0U);

  const PduPtr bulk = ask(request(GET_BULK_REQUEST_PDU, 3, 0, 7, {1, 3, 6, 1, 2, 1, 1}).get());
  ASSERT_NE(bulk, nullptr);
  EXPECT_EQ(bulk->num_varbinds, 7);
  const VarBind* const up_time = bulk->var_bind_list->next_var->next_var;
  EXPECT_EQ(up_time->type, TIME_TICKS_TYPE);
  EXPECT_LT(up_time->value.ul_value, 6000U);  // it has started within the last minute

  const PduPtr missing = ask(request(GET_REQUEST_PDU, 4, 0, 0, {1, 3, 6, 1, 2, 1, 1, 99, 0}).get());
  ASSERT_NE(missing, nullptr);
  EXPECT_EQ(missing->var_bind_list->type, NO_SUCH_OBJECT_TYPE);
  CloseUp();

  // The client of the library's page says the up-time: days, hours, minutes, seconds, hundredths.
  const std::string client = "ZN_SNMP_TEST_PORT=" + std::to_string(Agent::kPort) + " " SNMP_CLIENT;
  EXPECT_THAT(output_of(client + " 127.0.0.1 kivrel"),
              testing::MatchesRegex("  0 00:0[01]:[0-5][0-9]\\.[0-9][0-9]\n"));
  EXPECT_EQ(output_of(client + " 127.0.0.1 wrong 2>&1"), "no up-time from 127.0.0.1\n");
}

}  // namespace
}  // namespace tally
