// Independent software on the other side: random messages, which libsnmp and this library encode to
// the same bytes and decode to what was meant.
//
// A round is made from its number alone. PEER_ROUNDS sets how many there are:
//
//     PEER_ROUNDS=1000000 test_snmp --gtest_filter='Peer.*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "ber_vectors.h"
#include "libsnmp_pdu.h"

namespace tally {
namespace {

constexpr std::int16_t kValueTypes[] = {0x02, 0x04, 0x05, 0x06, 0x40, 0x41, 0x42,
                                        0x43, 0x44, 0x46, 0x80, 0x81, 0x82};

// Makes values, many of them near the edges of an encoded length.
struct Maker {
  std::mt19937 random;

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random()) % limit; }

  std::uint32_t number() {
    const std::uint32_t edge = 1U << below(32);
    return below(2) == 0 ? static_cast<std::uint32_t>(random()) % edge : edge + below(3) - 1;
  }

  OctetString* octets(std::uint32_t length) {
    OctetString* const string = MakeOctetString(nullptr, static_cast<std::int32_t>(length));
    for (std::uint32_t i = 0; i < length; ++i) {
      string->octet_ptr[i] = static_cast<unsigned char>(below(256));
    }
    return string;
  }

  OidPtr name() {
    std::vector<std::uint32_t> sids(2 + (below(20) == 0 ? below(127) : below(14)));
    for (std::uint32_t& sid : sids) sid = number();
    sids[0] %= 3;
    sids[1] %= 40;
    return OidPtr(MakeOID(sids.data(), static_cast<std::int32_t>(sids.size())));
  }

  VarBind* binding() {
    const std::int16_t type = kValueTypes[below(std::size(kValueTypes))];
    const ValueKind kind = value_kind(type);
    std::uint32_t word = number();
    void* value = &word;
    if (kind == ValueKind::oid) value = name().release();
    if (kind == ValueKind::unsigned64) value = MakeCounter64(below(2) * number(), word);
    if (type == OCTET_STRING_TYPE) value = octets(below(below(20) == 0 ? 2049 : 30));
    if (type == IP_ADDR_PRIM_TYPE) value = octets(4);
    // One of bytes that libsnmp takes for a number would begin with 0x9F.
    if (type == OPAQUE_TYPE) value = MakeOctetStringFromText("opaque");
    return MakeVarBindWithValue(name().get(), nullptr, type, value);
  }

  PduPtr pdu() {
    const auto type = static_cast<std::int16_t>(GET_REQUEST_PDU + below(8));
    const bool trap = type == TRAP_PDU;
    const bool counts = type == RESPONSE_PDU || type == GET_BULK_REQUEST_PDU;  // in both words
    const auto word = [this] { return static_cast<std::int32_t>(number()); };
    PduPtr pdu(MakePdu(type, word(), counts ? word() & INT32_MAX : 0,
                       counts ? word() & INT32_MAX : 0, trap ? name().release() : nullptr,
                       trap ? octets(4) : nullptr, word(), word(), number()));
    for (std::uint32_t left = below(20); left > 0; --left) LinkVarBind(pdu.get(), binding());
    return pdu;
  }
};

TheirPdu decoded(Bytes pdu, long version) {
  TheirPdu theirs(snmp_pdu_create(0));
  theirs->version = version;
  std::size_t size = pdu.size();
  return snmp_pdu_parse(theirs.get(), pdu.data(), &size) == 0 ? std::move(theirs) : nullptr;
}

// What libsnmp makes of its PDU with a community around it.
Bytes encoded(netsnmp_pdu* pdu, const OctetString& community) {
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = pdu->version;
  pdu->community_len = static_cast<std::size_t>(community.length);
  pdu->community = static_cast<u_char*>(netsnmp_memdup(community.octet_ptr, pdu->community_len));
  std::size_t room = 60000;
  std::size_t used = 0;
  auto* buffer = static_cast<u_char*>(std::malloc(room));
  const bool built = snmp_build(&buffer, &room, &used, &session, pdu) == 0;
  const Bytes bytes(buffer + (built ? room - used : room), buffer + room);
  std::free(buffer);
  return bytes;
}

Bytes bytes_of(const OctetString& string) {
  return {string.octet_ptr, string.octet_ptr + string.length};
}

void compare(Maker maker) {
  const PduPtr ours = maker.pdu();
  ASSERT_EQ(BuildPdu(ours.get()), 0);
  const SnmpMessagePtr message(ZnCreateV2cSnmpMessage(maker.octets(1 + maker.below(9)), nullptr));
  const TheirPdu theirs = theirs_of(*ours);
  message->version = static_cast<std::int32_t>(theirs->version);
  SnmpVersionTable versions = kV2cOnly;
  versions.version[0] = message->version;
  ASSERT_EQ(ZnBuildSnmpMessage(message.get(), ours.get(), &versions), 0);

  const Bytes bytes = encoded(theirs.get(), *message->community);
  ASSERT_EQ(bytes, bytes_of(*message->packlet));
  const TheirPdu seen = decoded(bytes_of(*ours->packlet), theirs->version);
  ASSERT_NE(seen, nullptr);
  ASSERT_EQ(encoded(seen.get(), *message->community), bytes);
  const SnmpMessagePtr read(ZnParseSnmpMessage(&versions, nullptr, nullptr, bytes.data(),
                                               static_cast<std::int32_t>(bytes.size())));
  ASSERT_EQ(text_of(read->community), text_of(message->community));
  const PduPtr again(ZnParsePdu(read->packlet->octet_ptr, read->packlet->length));
  ASSERT_NE(again, nullptr);
  ASSERT_EQ(text_of(again.get()), text_of(ours.get()));
}

TEST(Peer, LibsnmpAgrees) {
  setenv("MIBS", "", 1);
  zn_pkt_size = 60000;
  const char* const wanted = std::getenv("PEER_ROUNDS");
  const std::uint32_t rounds = wanted == nullptr ? 3000 : std::stoul(wanted) & UINT32_MAX;
  for (std::uint32_t round = 0; round < rounds && !HasFatalFailure(); ++round) {
    SCOPED_TRACE(round);
    compare({std::mt19937(round)});
  }
  zn_pkt_size = kMaxOctets;
}

}  // namespace
}  // namespace tally
