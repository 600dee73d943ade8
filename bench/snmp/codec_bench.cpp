// What it costs to encode and to decode the packets of a poll, against Debian's libsnmp.
//
// Both sides get the same packets: a Get of 28 bindings, its response, a response of 13 bindings
// with Counter64 values and a GetBulk response of 50 bindings. Encoding starts from a PDU that is
// made, decoding ends with everything freed; both are whole messages with community. Before
// anything is measured the two encoders must agree on every byte and the two decoders on the
// number of bindings. Compare medians of CPU time; ratios.py prints the ratios.
#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <benchmark/benchmark.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "snmp/bld_pkt.h"
#include "snmp/make_lib.h"
#include "snmp/oid_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp/v1_msg.h"
#include "snmp/v2c_cmsg.h"
#include "snmp/zn_msg.h"

namespace tally {
namespace {

constexpr char kCommunity[] = "kivrel";
constexpr std::int32_t kRequestId = 12345;

const SnmpVersionTable kVersions = {
    1, {1}, {nullptr}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

// A packet of the benchmark: `bindings` columns of an interface row, with values of these types.
struct Case {
  const char* name;
  std::int16_t pdu_type;
  int bindings;
  std::vector<std::int16_t> value_types;  // in turn
};

const std::vector<Case> kCases = {
    {"get28", GET_REQUEST_PDU, 28, {NULL_TYPE}},
    {"response28", RESPONSE_PDU, 28, {COUNTER_32_TYPE, COUNTER_32_TYPE, INTEGER_TYPE}},
    {"response13", RESPONSE_PDU, 13, {COUNTER_64_TYPE}},
    {"bulk50",
     RESPONSE_PDU,
     50,
     {OCTET_STRING_TYPE, INTEGER_TYPE, COUNTER_64_TYPE, TIME_TICKS_TYPE}},
};

constexpr char kName[] = "GigabitEthernet3/12";

std::vector<std::uint32_t> name_of(int i) {
  return {1,
          3,
          6,
          1,
          2,
          1,
          31,
          1,
          1,
          1,
          static_cast<std::uint32_t>(1 + i % 18),
          static_cast<std::uint32_t>(1000 + i)};
}

std::uint64_t number_of(int i) {
  return 0x123456789ABCDEFULL * static_cast<std::uint64_t>(i + 1);
}

PduPtr our_pdu(const Case& packet) {
  PduPtr pdu(MakePdu(packet.pdu_type, kRequestId, 0, 0, nullptr, nullptr, 0, 0, 0));
  for (int i = 0; i < packet.bindings; ++i) {
    const std::vector<std::uint32_t> sids = name_of(i);
    const OidPtr name(MakeOID(sids.data(), static_cast<std::int32_t>(sids.size())));
    const std::int16_t type =
        packet.value_types[static_cast<std::size_t>(i) % packet.value_types.size()];
    const std::uint64_t number = number_of(i);
    auto low = static_cast<std::uint32_t>(number);
    void* value = &low;
    if (value_kind(type) == ValueKind::unsigned64) {
      value = MakeCounter64(static_cast<std::uint32_t>(number >> 32), low);
    } else if (value_kind(type) == ValueKind::octets) {
      value = MakeOctetStringFromText(kName);
    }
    LinkVarBind(pdu.get(), MakeVarBindWithValue(name.get(), nullptr, type, value));
  }
  return pdu;
}

netsnmp_pdu* their_pdu(const Case& packet) {
  netsnmp_pdu* pdu = snmp_pdu_create(packet.pdu_type);
  pdu->version = SNMP_VERSION_2c;
  pdu->reqid = kRequestId;
  pdu->errstat = 0;
  pdu->errindex = 0;
  pdu->community = reinterpret_cast<u_char*>(strdup(kCommunity));
  pdu->community_len = std::strlen(kCommunity);
  for (int i = 0; i < packet.bindings; ++i) {
    const std::vector<std::uint32_t> sids = name_of(i);
    const std::vector<oid> name(sids.begin(), sids.end());
    const std::int16_t type =
        packet.value_types[static_cast<std::size_t>(i) % packet.value_types.size()];
    const std::uint64_t number = number_of(i);
    const counter64 wide = {static_cast<u_long>(number >> 32),
                            static_cast<u_long>(static_cast<std::uint32_t>(number))};
    const long integer = static_cast<std::int32_t>(number);
    const u_long low = static_cast<std::uint32_t>(number);
    const void* value = nullptr;
    std::size_t size = 0;
    switch (value_kind(type)) {
      case ValueKind::unsigned64:
        value = &wide;
        size = sizeof wide;
        break;
      case ValueKind::octets:
        value = kName;
        size = std::strlen(kName);
        break;
      case ValueKind::integer:
        value = &integer;
        size = sizeof integer;
        break;
      case ValueKind::unsigned32:
        value = &low;
        size = sizeof low;
        break;
      default:
        break;
    }
    snmp_pdu_add_variable(pdu, name.data(), name.size(), static_cast<u_char>(type), value, size);
  }
  return pdu;
}

netsnmp_session* their_session() {
  static netsnmp_session* const session = [] {
    init_snmp("bench");
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.version = SNMP_VERSION_2c;
    wanted.peername = const_cast<char*>("udp:127.0.0.1:9");
    wanted.community = reinterpret_cast<u_char*>(const_cast<char*>(kCommunity));
    wanted.community_len = std::strlen(kCommunity);
    netsnmp_session* const opened = snmp_open(&wanted);
    if (opened == nullptr) std::abort();
    return opened;
  }();
  return session;
}

void build_ours(SnmpMessage* message, Pdu* pdu) {
  if (BuildPdu(pdu) != 0 || ZnBuildSnmpMessage(message, pdu, &kVersions) != 0) std::abort();
}

SnmpMessagePtr new_message() {
  return SnmpMessagePtr(ZnCreateV2cSnmpMessage(MakeOctetStringFromText(kCommunity), nullptr));
}

// Builds into a buffer that is kept from call to call, which spares libsnmp an allocation.
std::string_view build_theirs(netsnmp_pdu* pdu) {
  static std::size_t room = 4096;
  static auto* buffer = static_cast<u_char*>(std::malloc(room));
  std::size_t offset = 0;
  if (snmp_build(&buffer, &room, &offset, their_session(), pdu) != 0) std::abort();
  return {reinterpret_cast<char*>(buffer) + room - offset, offset};
}

int parse_ours(const std::string& bytes) {
  const SnmpMessagePtr message(ZnParseSnmpMessage(
      &kVersions, nullptr, nullptr, reinterpret_cast<const unsigned char*>(bytes.data()),
      static_cast<std::int32_t>(bytes.size())));
  const PduPtr pdu(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
  if (pdu == nullptr) std::abort();
  return pdu->num_varbinds;
}

int parse_theirs(std::string& bytes) {
  auto* const pdu = static_cast<netsnmp_pdu*>(std::calloc(1, sizeof(netsnmp_pdu)));
  if (snmp_parse(static_cast<session_list*>(snmp_sess_pointer(their_session())), their_session(),
                 pdu, reinterpret_cast<u_char*>(bytes.data()), bytes.size()) != 0) {
    std::abort();
  }
  int bindings = 0;
  for (const netsnmp_variable_list* v = pdu->variables; v != nullptr; v = v->next_variable) {
    ++bindings;
  }
  snmp_free_pdu(pdu);
  return bindings;
}

// Ends the program unless both sides mean the same packet. Returns it.
std::string agreed_packet(const Case& packet) {
  const PduPtr pdu = our_pdu(packet);
  const SnmpMessagePtr message = new_message();
  build_ours(message.get(), pdu.get());
  std::string ours(reinterpret_cast<char*>(message->packlet->octet_ptr),
                   static_cast<std::size_t>(message->packlet->length));
  netsnmp_pdu* const theirs = their_pdu(packet);
  if (build_theirs(theirs) != ours || parse_ours(ours) != packet.bindings ||
      parse_theirs(ours) != packet.bindings) {
    std::fprintf(stderr, "%s: the encoders disagree\n", packet.name);
    std::abort();
  }
  snmp_free_pdu(theirs);
  return ours;
}

void add_benchmarks(const Case& packet) {
  const std::string bytes = agreed_packet(packet);
  const std::string name = packet.name;
  benchmark::RegisterBenchmark(("build/" + name + "/ours").c_str(),
                               [&packet](benchmark::State& state) {
                                 const PduPtr pdu = our_pdu(packet);
                                 const SnmpMessagePtr message = new_message();
                                 for ([[maybe_unused]] auto _ : state)
                                   build_ours(message.get(), pdu.get());
                               });
  benchmark::RegisterBenchmark(("build/" + name + "/libsnmp").c_str(),
                               [&packet](benchmark::State& state) {
                                 netsnmp_pdu* const pdu = their_pdu(packet);
                                 for ([[maybe_unused]] auto _ : state)
                                   benchmark::DoNotOptimize(build_theirs(pdu));
                                 snmp_free_pdu(pdu);
                               });
  benchmark::RegisterBenchmark(("parse/" + name + "/ours").c_str(),
                               [bytes](benchmark::State& state) {
                                 for ([[maybe_unused]] auto _ : state)
                                   benchmark::DoNotOptimize(parse_ours(bytes));
                               });
  benchmark::RegisterBenchmark(("parse/" + name + "/libsnmp").c_str(),
                               [bytes](benchmark::State& state) {
                                 std::string copy = bytes;
                                 for ([[maybe_unused]] auto _ : state)
                                   benchmark::DoNotOptimize(parse_theirs(copy));
                               });
}

}  // namespace
}  // namespace tally

int main(int argc, char** argv) {
  for (const tally::Case& packet : tally::kCases) tally::add_benchmarks(packet);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
