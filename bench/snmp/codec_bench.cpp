// What it costs to encode and to decode the packets of a poll, against Debian's libsnmp.
//
// Both sides get the same packets: a Get of 28 bindings, its response, a response of 13 bindings
// with Counter64 values and a GetBulk response of 50 bindings. Encoding starts from a PDU that is
// made, decoding ends with everything freed; both are whole messages with community. Before
// anything is measured the two encoders must agree on every byte and the two decoders on the
// number of bindings. Compare medians of CPU time; ratios.py prints the ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "snmp/libsnmp_pdu.h"
#include "snmp/snmp.h"

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
  std::uint32_t bindings;
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

PduPtr our_pdu(const Case& packet) {
  PduPtr pdu(MakePdu(packet.pdu_type, kRequestId, 0, 0, nullptr, nullptr, 0, 0, 0));
  for (std::uint32_t i = 0; i < packet.bindings; ++i) {
    const std::uint32_t sids[] = {1, 3, 6, 1, 2, 1, 31, 1, 1, 1, 1 + i % 18, 1000 + i};
    const OidPtr name(MakeOID(sids, std::size(sids)));
    const std::int16_t type = packet.value_types[i % packet.value_types.size()];
    const std::uint64_t number = 0x123456789ABCDEFULL * (i + 1);
    auto low = static_cast<std::uint32_t>(number);
    void* value = &low;
    if (type == COUNTER_64_TYPE) {
      value = MakeCounter64(static_cast<std::uint32_t>(number >> 32), low);
    } else if (type == OCTET_STRING_TYPE) {
      value = MakeOctetStringFromText("GigabitEthernet3/12");
    }
    LinkVarBind(pdu.get(), MakeVarBindWithValue(name.get(), nullptr, type, value));
  }
  return pdu;
}

TheirPdu their_pdu(const Case& packet) {
  TheirPdu pdu = theirs_of(*our_pdu(packet));
  pdu->community = reinterpret_cast<u_char*>(strdup(kCommunity));
  pdu->community_len = std::strlen(kCommunity);
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

std::uint32_t parse_ours(const std::string& bytes) {
  const SnmpMessagePtr message(ZnParseSnmpMessage(
      &kVersions, nullptr, nullptr, reinterpret_cast<const unsigned char*>(bytes.data()),
      static_cast<std::int32_t>(bytes.size())));
  const PduPtr pdu(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
  if (pdu == nullptr) std::abort();
  return static_cast<std::uint32_t>(pdu->num_varbinds);
}

std::uint32_t parse_theirs(std::string& bytes) {
  auto* const pdu = static_cast<netsnmp_pdu*>(std::calloc(1, sizeof(netsnmp_pdu)));
  if (snmp_parse(static_cast<session_list*>(snmp_sess_pointer(their_session())), their_session(),
                 pdu, reinterpret_cast<u_char*>(bytes.data()), bytes.size()) != 0) {
    std::abort();
  }
  std::uint32_t bindings = 0;
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
  if (build_theirs(their_pdu(packet).get()) != ours || parse_ours(ours) != packet.bindings ||
      parse_theirs(ours) != packet.bindings) {
    std::fprintf(stderr, "%s: the encoders disagree\n", packet.name);
    std::abort();
  }
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
                                 const TheirPdu pdu = their_pdu(packet);
                                 for ([[maybe_unused]] auto _ : state)
                                   benchmark::DoNotOptimize(build_theirs(pdu.get()));
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
