// Constructors, copies, destructors and the encoder's refusals.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"
#include "system_faults.h"

namespace tally {
namespace {

template <typename Pointer>
std::string text_or_null(const Pointer& value) {
  return value ? text_of(value.get()) : "null";
}

// What is refused leaves a message of its own and nothing behind.
class Refusals : public testing::Test {
 protected:
  void SetUp() override {
    FreeKeptRecords();
    before_ = live_blocks();
  }
  void TearDown() override {
    FreeKeptRecords();
    EXPECT_EQ(live_blocks(), before_);
  }
  // The lines since the last call, with a bar between them.
  std::string logged() {
    std::string text;
    for (const std::string& line : log_.take()) text += (text.empty() ? "" : "|") + line;
    return text;
  }
  void refused(const void* made, const std::string& log) {
    EXPECT_EQ(made, nullptr) << log;
    EXPECT_EQ(logged(), log);
  }
  void fails(int result, const std::string& log) {
    EXPECT_EQ(result, -1) << log;
    EXPECT_EQ(logged(), log);
  }

 private:
  RecordedLog log_;
  std::size_t before_ = 0;
};

TEST_F(Refusals, OfTheConstructors) {
  std::int32_t number = 7;
  OctetString huge = {nullptr, 40000};
  const OID negative = {-1, nullptr};
  const OidPtr name = oid({1, 3, 6});
  const OidPtr longest(MakeOID(nullptr, 128));
  const OidPtr index = oid({3, 1, 2});
  const std::string too_long(2050, 'x');
  const auto bind = [&](std::int16_t type, void* value) {
    return MakeVarBindWithValue(name.get(), nullptr, type, value);
  };
  const auto pdu = [](std::int16_t type, OID* enterprise) {
    return MakePdu(type, 1, 0, 0, enterprise, nullptr, 0, 0, 0);
  };
  const PduPtr request(pdu(GET_REQUEST_PDU, nullptr));
  refused(MakeOctetString(nullptr, 2049), "20000 MakeOctetString: Bad octetstring length: 2049");
  refused(MakeOctetString(nullptr, -1), "20000 MakeOctetString: Bad octetstring length: -1");
  refused(MakeOctetString2(nullptr, 2049), "20000 MakeOctetString2: Bad octetstring length: 2049");
  refused(MakeOctetStringFromText(too_long.c_str()),
          "20000 MakeOctetString: Bad octetstring length: 2050");
  refused(MakeOctetStringFromHex("00:1"), "20000 MakeOctetStringFromHex: Bad hex text: 00:1");
  refused(MakeOID(nullptr, 129), "20000 MakeOID: Bad sid string length: 129");
  refused(CatOID(longest.get(), name.get()), "20000 CatOID: Too long: 131");
  refused(CatOID(name.get(), &negative), "20000 CatOID: Too long: 2");
  refused(MakeLenOID(index->oid_ptr, -1), "20000 MakeLenOID: Bad sid string length: -1");
  refused(MakeOIDSubLen(index->oid_ptr, 3), "20000 MakeOIDSubLen: Bad sid string length: 3");
  refused(MakeVarBindWithValue(nullptr, nullptr, NULL_TYPE, nullptr),
          "1000 MakeVarBindWithValue: Null object OID.");
  refused(MakeVarBindWithNull(nullptr, nullptr), "1000 MakeVarBindWithNull: Null object OID.");
  refused(bind(0x47, &number), "20000 MakeVarBindWithValue: Illegal type: 0x47");
  refused(bind(0x45, &number), "20000 MakeVarBindWithValue: Illegal type: 0x45");
  refused(bind(INTEGER_TYPE, nullptr), "1000 MakeVarBindWithValue: Null value.");
  refused(bind(COUNTER_64_TYPE, nullptr), "20000 FindLenUInt64, NULL input");
  refused(bind(OPAQUE_TYPE, nullptr), "20000 FindLenOctetString, NULL input");
  refused(bind(OCTET_STRING_TYPE, &huge), "20000 FindLenOctetString, lenlen");
  refused(MakeVarBindWithNull(longest.get(), name.get()),
          "20000 CatOID: Too long: 131|1000 MakeVarBindWithNull: cannot malloc vb->name.");
  refused(pdu(0xA9, nullptr), "20000 MakePdu: illegal type: 0xa9");
  refused(pdu(TRAP_PDU, nullptr), "1000 MakePdu: Trap type but no Enterprise.");
  refused(pdu(TRAP_PDU, name.get()), "1000 MakePdu: Trap type but no Agent_addr.");
  fails(LinkVarBind(request.get(), nullptr), "1000 LinkVarBind: Trying to add Null Variable");
  refused(CloneUInt64(nullptr), "1000 CloneUInt64: value passed in is NULL");
  refused(CloneOctetString(nullptr), "1000 CloneOctetString: value passed in is NULL");
  refused(CloneVarBind(nullptr), "1000 CloneVarBind: value passed in is NULL");
  refused(CloneVarBindList(nullptr), "1000 CloneVarBindList: value passed in is NULL");
}

TEST_F(Refusals, OfTheSizesAndWriters) {
  unsigned char room[64];
  std::uint32_t sids[2] = {1, 3};
  unsigned char* out = room;
  const OctetString long_string = {room, 0x1000000};
  const OID long_oid = {40000, sids};
  VarBind odd = {};
  odd.data_length = -1;
  const std::string lenlen = "20000 Lenlen: Length greater than 0x01000000???";
  const std::string short_oid = "1000 AddOID: Attempting to encode oid with length < 2";
  const std::string bad_start = "1000 AddOID: illegal value for first two subids";
  fails(DoLenLen(0x1000000), lenlen);
  fails(FindLenOctetString(nullptr), "20000 FindLenOctetString, NULL input");
  fails(FindLenOID(nullptr), "20000 FindLenOID, lenlen");
  fails(AddOctetString(&out, OCTET_STRING_TYPE, &long_string),
        lenlen + "|20000 AddOctetString,lenlen");
  fails(AddOID(&out, OBJECT_ID_TYPE, &long_oid), "20000 AddOID: lenlen");
  fails(AddOID(&out, OBJECT_ID_TYPE, oid({1}).get()), short_oid);
  fails(AddOID(&out, OBJECT_ID_TYPE, oid({2, 40}).get()), bad_start);
  fails(AddOID(&out, OBJECT_ID_TYPE, oid({3, 0}).get()), bad_start);
  fails(AddVarBind(&out, &odd, nullptr), lenlen + "|20000 AddVarBind: lenlen:");
  odd.name_size = odd.value_size = 16384;
  fails(FindLenVarBind(&odd), "20000 FindLenVarBind, lenlen");
  EXPECT_EQ(out, room);
}

TEST_F(Refusals, FreeingSeparateStorageIsTold) {
  OctetString* const string = MakeOctetString(nullptr, 1);
  string->octet_ptr = static_cast<unsigned char*>(std::malloc(9));
  FreeOctetString(string);
  EXPECT_EQ(logged(), "1000 freed octet string with separate octet_ptr");
  OID* const name = MakeOID(nullptr, 1);
  name->oid_ptr = static_cast<std::uint32_t*>(std::malloc(12));
  FreeOID(name);
  EXPECT_EQ(logged(), "1000 freed oid with separate oid_ptr");
}

// Something that was built is spoilt and built again: that fails, and leaves no packlet.
TEST_F(Refusals, OfAPduThatWasBuilt) {
  const auto give_value = [](VarBind& b, std::int16_t type, OID* value) {
    FreeOctetString(b.value.os_value);
    b.type = type;
    b.value.oid_value = value;
  };
  const struct {
    std::int16_t pdu_type;
    std::string log;
    std::function<void(Pdu&, VarBind&)> spoil;
  } cases[] = {
      {RESPONSE_PDU, "1000 AddOID: illegal value for first two subids|20000 AddVarBind: AddOID",
       [](Pdu&, VarBind& b) { b.name->oid_ptr[0] = 3; }},
      {RESPONSE_PDU,
       "1000 AddOID: Attempting to encode oid with length < 2|20000 AddVarBind: AddOID",
       [&](Pdu&, VarBind& b) { give_value(b, 0x06, oid({1}).release()); }},
      {RESPONSE_PDU, "20000 AddOctetString,lenlen|20000 AddVarBind: AddOctetString",
       [&](Pdu&, VarBind& b) { give_value(b, 0x04, nullptr); }},
      {RESPONSE_PDU, "20000 AddUInt64, NULL input",
       [&](Pdu&, VarBind& b) { give_value(b, 0x46, nullptr); }},
      {RESPONSE_PDU, "20000 AddVarBind: value: Illegal type: 0x47",
       [&](Pdu&, VarBind& b) { give_value(b, 0x47, nullptr); }},
      {RESPONSE_PDU, "20000 BuildPdu: bad pdu type: a9", [](Pdu& p, VarBind&) { p.type = 0xA9; }},
      {TRAP_PDU, "20000 FindLenOID, lenlen|20000 BuildPdu: temp_data_len (1)",
       [](Pdu& p, VarBind&) { FreeOID(std::exchange(p.enterprise, nullptr)); }},
      {TRAP_PDU, "20000 FindLenOctetString, NULL input|20000 BuildPdu: temp_data_len (2)",
       [](Pdu& p, VarBind&) { FreeOctetString(std::exchange(p.agent_addr, nullptr)); }},
      {GET_REQUEST_PDU, "20000 FindLenVarBind, lenlen|20000 BuildPdu: varbindlen:",
       [](Pdu&, VarBind& b) { b.name_size = INT16_MAX; }},
      {GET_REQUEST_PDU,
       "20000 MakeOctetString: Bad octetstring length: 2074|"
       "1000 BuildPdu: pdu_ptr->packlet MakeOctetString failed",
       [](Pdu&, VarBind& b) { b.name_size = 2048; }},
  };
  for (const auto& c : cases) {
    const bool trap = c.pdu_type == TRAP_PDU;
    const PduPtr pdu(MakePdu(c.pdu_type, 1, 0, 0, trap ? oid({1, 3, 6}).release() : nullptr,
                             trap ? MakeOctetString(nullptr, 4) : nullptr, 0, 0, 0));
    LinkVarBind(pdu.get(), MakeVarBindWithValue(oid({1, 3}).get(), nullptr, OCTET_STRING_TYPE,
                                                MakeOctetString(nullptr, 3)));
    EXPECT_EQ(BuildPdu(pdu.get()), 0);
    c.spoil(*pdu, *pdu->var_bind_list);
    fails(BuildPdu(pdu.get()), c.log);
    EXPECT_EQ(pdu->packlet, nullptr);
  }
}

TEST(Encoder, LengthFieldsAndTheQuirkOfSmallOids) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {0x7F, "7F"},        {0x80, "81 80"},      {0xFF, "81 FF"},
      {0x100, "82 01 00"}, {0xFFFF, "82 FF FF"}, {0x10000, "83 01 00 00"}};
  for (const auto& [length, bytes] : cases) {
    unsigned char room[8];
    unsigned char* out = room;
    EXPECT_EQ(AddLen(&out, DoLenLen(length), length), 0);
    EXPECT_EQ(text_of(room, static_cast<std::size_t>(out - room)), bytes);
  }
  EXPECT_EQ(FindLenOID(oid({1}).get()), 3);
  EXPECT_EQ(FindLenOID(oid({2, 4000000000}).get()), 3);
}

TEST(Encoder, WrongSizesOfEveryTypeAreMendedBeforeAnythingIsBuilt) {
  const PduPtr pdu = every_type(RESPONSE_PDU);
  ASSERT_EQ(BuildPdu(pdu.get()), 0);
  const std::string right = text_of(pdu->packlet);
  for (const int wrong : {-2, -1, 1, 100}) {
    for (VarBind* b = pdu->var_bind_list; b; b = b->next_var) {
      b->name_size = static_cast<std::int16_t>(b->name_size + wrong);
      b->value_size = static_cast<std::int16_t>(b->value_size - wrong / 2);
    }
    ASSERT_EQ(BuildPdu(pdu.get()), 0);
    EXPECT_EQ(text_of(pdu->packlet), right) << wrong;
  }
}

TEST(Values, ALargerPacketRaisesTheLimitOfStrings) {
  zn_pkt_size = 4000;
  EXPECT_NE(OctetStringPtr(MakeOctetString(nullptr, 4000)), nullptr);
  EXPECT_EQ(OctetStringPtr(MakeOctetString(nullptr, 4001)), nullptr);
  zn_pkt_size = 100;  // does not lower the limit
  EXPECT_NE(OctetStringPtr(MakeOctetString(nullptr, 2048)), nullptr);
  zn_pkt_size = 2048;
}

TEST(Values, Texts) {
  const std::pair<const char*, const char*> escapes[] = {{"a\\tb", "61 09 62"},
                                                         {"\\n\\r\\t\\q\\\\", "0A 0D 09 71 5C"},
                                                         {"a\\", "61 5C"},
                                                         {"\\", "5C"},
                                                         {"", ""},
                                                         {nullptr, ""}};
  for (const auto& [text, bytes] : escapes) {
    EXPECT_EQ(text_or_null(OctetStringPtr(MakeOctetStringFromText(text))), bytes);
  }
  for (const char* text : {"00:1b:ff", "00 1B FF", "00-1b-Ff", "001bff", "0x001bff"}) {
    EXPECT_EQ(text_or_null(OctetStringPtr(MakeOctetStringFromHex(text))), "00 1B FF");
    EXPECT_EQ(text_or_null(OidPtr(MakeOIDFromHex(text))), "0.27.255");
  }
  for (const char* text : {"0", "0g", "00:", ":00", "00::11", "00 1 2", "\xff\xff"}) {
    EXPECT_EQ(OctetStringPtr(MakeOctetStringFromHex(text)), nullptr) << text;
  }
}

TEST(Values, OidsMadeOfOthers) {
  const OidPtr tail = oid({6, 1});
  EXPECT_EQ(text_or_null(OidPtr(CatOID(oid({1, 3}).get(), tail.get()))), "1.3.6.1");
  EXPECT_EQ(text_or_null(OidPtr(CatOID(nullptr, tail.get()))), "6.1");
  EXPECT_EQ(text_or_null(OidPtr(MakeLenOID(tail->oid_ptr, 2))), "2.6.1");
  EXPECT_EQ(text_or_null(OidPtr(MakeLenOID(nullptr, 2))), "0");
  EXPECT_EQ(text_or_null(OidPtr(MakeOIDSubLen(oid({2, 6, 1, 9})->oid_ptr, 4))), "6.1");
}

TEST(Values, BindingsKeepTheirOrderAndTheirCopiesAreDeep) {
  PduPtr pdu = every_type(RESPONSE_PDU);
  const std::string whole =
      "A2 7 0 0 [1.3.6.2=2:-2147483647] [1.3.6.4=4:61 62 63 64] [1.3.6.5=5:] [1.3.6.6=6:1.3.4] "
      "[1.3.6.64=64:61 62 63 64] [1.3.6.65=65:2147483649] [1.3.6.66=66:2147483649] "
      "[1.3.6.67=67:2147483649] [1.3.6.68=68:61 62 63 64] [1.3.6.70=70:4294967298] "
      "[1.3.6.128=128:] [1.3.6.129=129:] [1.3.6.130=130:]";
  EXPECT_EQ(text_of(*pdu), whole);
  PduPtr copy(MakePdu(RESPONSE_PDU, 7, 0, 0, nullptr, nullptr, 0, 0, 0));
  LinkVarBind(copy.get(), CloneVarBindList(pdu->var_bind_list));
  LinkVarBind(copy.get(), MakeVarBindWithNull(oid({1, 3}).get(), nullptr));
  pdu.reset();
  EXPECT_EQ(text_of(*copy), whole + " [1.3=5:]");
  ASSERT_EQ(BuildPdu(copy.get()), 0);
  const PduPtr again(ZnParsePdu(copy->packlet->octet_ptr, copy->packlet->length));
  EXPECT_EQ(text_of(*again), text_of(*copy));
  EXPECT_EQ(again->num_varbinds, 14);
}

// The order in which a thread's destructors run is not the library's: records are freed before and
// after it has given back what it keeps.
TEST(Values, AThreadKeepsNothingBeyondItsEnd) {
  const std::size_t before = live_blocks();
  std::thread([] {
    static thread_local OidPtr first;
    first.reset();  // constructs it, so that it is destroyed last
    for (const OidPtr& name : {oid({1, 3}), oid({1, 3, 6})}) EXPECT_NE(name, nullptr);
    first = oid({1, 3, 6});
  }).join();
  EXPECT_EQ(live_blocks(), before);
}

}  // namespace
}  // namespace tally
