// Constructors, copies, destructors and the encoder's refusals.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"
#include "system_faults.h"

namespace tally {
namespace {

std::string text_or_null(const OidPtr& value) {
  return value ? text_of(value.get()) : "null";
}

std::string text_or_null(const OctetStringPtr& value) {
  return value ? text_of(value.get()) : "null";
}

// Calls that fail, the level and the text that each logs, in order.
struct Refusal {
  const char* name;
  std::function<bool()> refused;
  std::vector<std::string> log;
};

void check(const std::vector<Refusal>& cases) {
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.name);
    FreeKeptRecords();
    const std::size_t before = live_blocks();
    RecordedLog log;
    EXPECT_TRUE(c.refused());
    EXPECT_EQ(log.take(), c.log);
    FreeKeptRecords();
    EXPECT_EQ(live_blocks(), before);
  }
}

TEST(Values, Refused) {
  const OidPtr name = oid({1, 3, 6});
  std::int32_t number = 7;
  const auto bind = [&](std::int16_t type, void* value) {
    return MakeVarBindWithValue(name.get(), nullptr, type, value) == nullptr;
  };
  const auto pdu = [](std::int16_t type, OID* enterprise, OctetString* address) {
    return MakePdu(type, 1, 0, 0, enterprise, address, 0, 0, 0) == nullptr;
  };
  OctetString huge = {nullptr, 40000};
  check({
      {"2049 bytes",
       [] { return !MakeOctetString(nullptr, 2049); },
       {"20000 MakeOctetString: Bad octetstring length: 2049"}},
      {"-1 bytes",
       [] { return !MakeOctetString(nullptr, -1); },
       {"20000 MakeOctetString: Bad octetstring length: -1"}},
      {"2049 bytes and a terminator",
       [] { return !MakeOctetString2(nullptr, 2049); },
       {"20000 MakeOctetString2: Bad octetstring length: 2049"}},
      {"a text of 2049 bytes",
       [] { return !MakeOctetStringFromText(std::string(2049, 'x').c_str()); },
       {"20000 MakeOctetString: Bad octetstring length: 2049"}},
      {"half a hex byte",
       [] { return !MakeOctetStringFromHex("00:1"); },
       {"20000 MakeOctetStringFromHex: Bad hex text: 00:1"}},
      {"129 sub-identifiers",
       [] { return !MakeOID(nullptr, 129); },
       {"20000 MakeOID: Bad sid string length: 129"}},
      {"100 + 29 sub-identifiers",
       [] {
         return !CatOID(OidPtr(MakeOID(nullptr, 100)).get(), OidPtr(MakeOID(nullptr, 29)).get());
       },
       {"20000 CatOID: Too long: 129"}},
      {"an index that is shorter than it says",
       [] {
         return !MakeOIDSubLen(OidPtr(oid({3, 1, 2})).get()->oid_ptr, 3);
       },
       {"20000 MakeOIDSubLen: Bad sid string length: 3"}},
      {"no object",
       [] { return !MakeVarBindWithValue(nullptr, nullptr, NULL_TYPE, nullptr); },
       {"1000 MakeVarBindWithValue: Null object OID."}},
      {"no object for NULL",
       [] { return !MakeVarBindWithNull(nullptr, nullptr); },
       {"1000 MakeVarBindWithNull: Null object OID."}},
      {"type 0x47",
       [&] { return bind(0x47, &number); },
       {"20000 MakeVarBindWithValue: Illegal type: 0x47"}},
      {"type 0x45",
       [&] { return bind(0x45, &number); },
       {"20000 MakeVarBindWithValue: Illegal type: 0x45"}},
      {"no integer", [&] { return bind(INTEGER_TYPE, nullptr); }, {}},
      {"no string",
       [&] { return bind(OPAQUE_TYPE, nullptr); },
       {"20000 FindLenOctetString, NULL input"}},
      {"a string whose size no 16 bits can count",
       [&] { return bind(OCTET_STRING_TYPE, &huge); },
       {"20000 FindLenOctetString, lenlen"}},
      {"a name that is too long with its instance",
       [&] { return !MakeVarBindWithNull(OidPtr(MakeOID(nullptr, 128)).get(), name.get()); },
       {"20000 CatOID: Too long: 131", "1000 MakeVarBindWithNull: cannot malloc vb->name."}},
      {"PDU type 0xA9",
       [&] { return pdu(0xA9, nullptr, nullptr); },
       {"20000 MakePdu: illegal type: 0xa9"}},
      {"a trap without an enterprise",
       [&] { return pdu(TRAP_PDU, nullptr, nullptr); },
       {"1000 MakePdu: Trap type but no Enterprise."}},
      {"a trap without an address",
       [&] { return pdu(TRAP_PDU, name.get(), nullptr); },
       {"1000 MakePdu: Trap type but no Agent_addr."}},
      {"no binding to link",
       [] {
         return LinkVarBind(PduPtr(MakePdu(0xA0, 1, 0, 0, nullptr, nullptr, 0, 0, 0)).get(),
                            nullptr) == -1;
       },
       {"1000 LinkVarBind: Trying to add Null Variable"}},
      {"no counter to copy",
       [] { return !CloneUInt64(nullptr); },
       {"1000 CloneUInt64: value passed in is NULL"}},
      {"no string to copy",
       [] { return !CloneOctetString(nullptr); },
       {"1000 CloneOctetString: value passed in is NULL"}},
      {"no binding to copy",
       [] { return !CloneVarBind(nullptr); },
       {"1000 CloneVarBind: value passed in is NULL"}},
      {"no list to copy",
       [] { return !CloneVarBindList(nullptr); },
       {"1000 CloneVarBindList: value passed in is NULL"}},
  });
}

TEST(Encoder, Refused) {
  unsigned char room[64];
  const auto write_oid = [&](std::initializer_list<std::uint32_t> sids) {
    unsigned char* out = room;
    return AddOID(&out, OBJECT_ID_TYPE, oid(sids).get()) == -1 && out == room;
  };
  // Builds a PDU after something has been done to it and to its binding.
  const auto build = [](std::int16_t type, const std::function<void(Pdu&, VarBind&)>& spoil) {
    OID* const enterprise = oid({1, 3, 6}).release();
    OctetString* const address = MakeOctetString(nullptr, 4);
    const PduPtr pdu(MakePdu(type, 1, 0, 0, enterprise, address, 0, 0, 0));
    if (type != TRAP_PDU) {
      FreeOID(enterprise);
      FreeOctetString(address);
    }
    LinkVarBind(pdu.get(), MakeVarBindWithValue(oid({1, 3}).get(), nullptr, OCTET_STRING_TYPE,
                                                MakeOctetString(nullptr, 3)));
    EXPECT_EQ(BuildPdu(pdu.get()), 0);
    spoil(*pdu, *pdu->var_bind_list);
    const bool refused = BuildPdu(pdu.get()) == -1 && pdu->packlet == nullptr;
    pdu->type = type;  // so that everything is freed
    return refused;
  };
  OctetString long_string = {room, 0x1000000};
  VarBind odd = {};
  check({
      {"a length of 2^24",
       [] { return DoLenLen(0x1000000) == -1; },
       {"20000 Lenlen: Length greater than 0x01000000???"}},
      {"no string",
       [] { return FindLenOctetString(nullptr) == -1; },
       {"20000 FindLenOctetString, NULL input"}},
      {"a string of 2^24 bytes",
       [&] {
         unsigned char* out = room;
         return AddOctetString(&out, OCTET_STRING_TYPE, &long_string) == -1;
       },
       {"20000 Lenlen: Length greater than 0x01000000???", "20000 AddOctetString,lenlen"}},
      {"no OID", [] { return FindLenOID(nullptr) == -1; }, {"20000 FindLenOID, lenlen"}},
      {"an OID of one",
       [&] { return write_oid({1}); },
       {"1000 AddOID: Attempting to encode oid with length < 2"}},
      {"2.40",
       [&] {
         return write_oid({2, 40});
       },
       {"1000 AddOID: illegal value for first two subids"}},
      {"3.0",
       [&] {
         return write_oid({3, 0});
       },
       {"1000 AddOID: illegal value for first two subids"}},
      {"a binding with a negative size",
       [&] {
         odd.data_length = -1;
         unsigned char* out = room;
         return AddVarBind(&out, &odd, nullptr) == -1;
       },
       {"20000 Lenlen: Length greater than 0x01000000???", "20000 AddVarBind: lenlen:"}},
      {"bindings of more than 32767 bytes",
       [&] {
         odd = {};
         odd.name_size = odd.value_size = 16384;
         return FindLenVarBind(&odd) == -1;
       },
       {"20000 FindLenVarBind, lenlen"}},
      {"a name that cannot be encoded",
       [&] { return build(RESPONSE_PDU, [](Pdu&, VarBind& b) { b.name->oid_ptr[0] = 3; }); },
       {"1000 AddOID: illegal value for first two subids", "20000 AddVarBind: AddOID"}},
      {"an OID value that cannot be encoded",
       [&] {
         return build(RESPONSE_PDU, [](Pdu&, VarBind& b) {
           FreeOctetString(b.value.os_value);
           b.type = OBJECT_ID_TYPE;
           b.value.oid_value = oid({1}).release();
         });
       },
       {"1000 AddOID: Attempting to encode oid with length < 2", "20000 AddVarBind: AddOID"}},
      {"a string that is gone",
       [&] {
         return build(RESPONSE_PDU, [](Pdu&, VarBind& b) {
           FreeOctetString(b.value.os_value);
           b.value.os_value = nullptr;
         });
       },
       {"20000 AddOctetString,lenlen", "20000 AddVarBind: AddOctetString"}},
      {"an unknown value type",
       [&] {
         return build(RESPONSE_PDU, [](Pdu&, VarBind& b) {
           FreeOctetString(b.value.os_value);
           b.type = 0x47;
         });
       },
       {"20000 AddVarBind: value: Illegal type: 0x47"}},
      {"an unknown PDU type",
       [&] { return build(RESPONSE_PDU, [](Pdu& p, VarBind&) { p.type = 0xA9; }); },
       {"20000 BuildPdu: bad pdu type: a9"}},
      {"a trap whose enterprise is gone",
       [&] {
         return build(TRAP_PDU, [](Pdu& p, VarBind&) {
           FreeOID(p.enterprise);
           p.enterprise = nullptr;
         });
       },
       {"20000 FindLenOID, lenlen", "20000 BuildPdu: temp_data_len (1)"}},
      {"a trap whose address is gone",
       [&] {
         return build(TRAP_PDU, [](Pdu& p, VarBind&) {
           FreeOctetString(p.agent_addr);
           p.agent_addr = nullptr;
         });
       },
       {"20000 FindLenOctetString, NULL input", "20000 BuildPdu: temp_data_len (2)"}},
      {"sizes that no 16 bits can count",
       [&] { return build(GET_REQUEST_PDU, [](Pdu&, VarBind& b) { b.name_size = INT16_MAX; }); },
       {"20000 FindLenVarBind, lenlen", "20000 BuildPdu: varbindlen:"}},
      {"a PDU of more than a packet",
       [&] { return build(GET_REQUEST_PDU, [](Pdu&, VarBind& b) { b.name_size = 2048; }); },
       {"20000 MakeOctetString: Bad octetstring length: 2074",
        "1000 BuildPdu: pdu_ptr->packlet MakeOctetString failed"}},
  });
}

TEST(Encoder, LengthFieldsAndTheQuirkOfSmallOids) {
  const struct {
    std::int32_t length;
    int size;
    const char* bytes;
  } cases[] = {{0x7F, 1, "7F"},        {0x80, 2, "81 80"},      {0xFF, 2, "81 FF"},
               {0x100, 3, "82 01 00"}, {0xFFFF, 3, "82 FF FF"}, {0x10000, 4, "83 01 00 00"}};
  for (const auto& c : cases) {
    unsigned char room[8];
    unsigned char* out = room;
    EXPECT_EQ(DoLenLen(c.length), c.size);
    EXPECT_EQ(AddLen(&out, DoLenLen(c.length), c.length), 0);
    EXPECT_EQ(text_of(room, static_cast<std::size_t>(out - room)), c.bytes);
  }
  EXPECT_EQ(FindLenOID(OidPtr(MakeOID(nullptr, 0)).get()), 3);
  EXPECT_EQ(FindLenOID(oid({1}).get()), 3);
  EXPECT_EQ(FindLenOID(oid({2, 4000000000}).get()), 3);
}

TEST(Encoder, ChangedValuesAreMeasuredAgainWithOneAllocationOtherwise) {
  const PduPtr pdu(MakePdu(SET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
  std::int32_t number = 5;
  LinkVarBind(pdu.get(), MakeVarBindWithValue(oid({1, 3}).get(), nullptr, INTEGER_TYPE, &number));
  for (const std::int32_t value : {5, 500, 500000, -1}) {
    pdu->var_bind_list->value.sl_value = value;
    ASSERT_EQ(BuildPdu(pdu.get()), 0);
    reset_faults();
    ASSERT_EQ(BuildPdu(pdu.get()), 0);
    EXPECT_EQ(faults().mallocs, 1);
    const PduPtr again(ZnParsePdu(pdu->packlet->octet_ptr, pdu->packlet->length));
    EXPECT_EQ(again->var_bind_list->value.sl_value, value);
  }
}

TEST(Values, Limits) {
  EXPECT_NE(OidPtr(MakeOID(nullptr, 128)), nullptr);
  EXPECT_EQ(OctetStringPtr(MakeOctetString(nullptr, 0))->length, 0);
  EXPECT_EQ(OctetStringPtr(MakeOctetString(nullptr, 2048))->octet_ptr[2047], 0);
  zn_pkt_size = 4000;
  EXPECT_NE(OctetStringPtr(MakeOctetString(nullptr, 4000)), nullptr);
  EXPECT_EQ(OctetStringPtr(MakeOctetString(nullptr, 4001)), nullptr);
  zn_pkt_size = 100;  // does not lower the limit
  EXPECT_NE(OctetStringPtr(MakeOctetString(nullptr, 2048)), nullptr);
  zn_pkt_size = 2048;
  const OctetStringPtr ended(MakeOctetString2(bytes_of("41 42").data(), 2));
  EXPECT_STREQ(reinterpret_cast<const char*>(ended->octet_ptr), "AB");
  EXPECT_EQ(text_of(ended->octet_ptr, 8), "41 42 00 00 00 00 00 00");
}

TEST(Values, Texts) {
  const struct {
    const char* text;
    const char* bytes;
  } escapes[] = {{"a\\tb", "61 09 62"}, {"\\n\\r\\t\\q\\\\", "0A 0D 09 71 5C"},
                 {"a\\", "61 5C"},      {"\\", "5C"},
                 {"\\\\", "5C"},        {"", ""},
                 {nullptr, ""}};
  for (const auto& c : escapes) {
    EXPECT_EQ(text_or_null(OctetStringPtr(MakeOctetStringFromText(c.text))), c.bytes);
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
  const OidPtr head = oid({1, 3});
  const OidPtr tail = oid({6, 1});
  EXPECT_EQ(text_or_null(OidPtr(CatOID(head.get(), tail.get()))), "1.3.6.1");
  EXPECT_EQ(text_or_null(OidPtr(CatOID(nullptr, tail.get()))), "6.1");
  EXPECT_EQ(text_or_null(OidPtr(CloneOID(head.get()))), "1.3");
  EXPECT_EQ(text_or_null(OidPtr(MakeLenOID(tail->oid_ptr, 2))), "2.6.1");
  const OidPtr index = oid({2, 6, 1, 9});
  EXPECT_EQ(text_or_null(OidPtr(MakeOIDSubLen(index->oid_ptr, 4))), "6.1");
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

TEST(Values, SeparateStorageIsFreedWithAMessage) {
  RecordedLog log;
  FreeKeptRecords();
  const std::size_t before = live_blocks();
  OctetString* const string = MakeOctetString(nullptr, 1);
  string->octet_ptr = static_cast<unsigned char*>(std::malloc(9));
  FreeOctetString(string);
  OID* const name = MakeOID(nullptr, 1);
  name->oid_ptr = static_cast<std::uint32_t*>(std::malloc(12));
  FreeOID(name);
  EXPECT_EQ(live_blocks(), before);
  EXPECT_EQ(log.take(), (std::vector<std::string>{"1000 freed octet string with separate octet_ptr",
                                                  "1000 freed oid with separate oid_ptr"}));
  FreeOctetString(nullptr);
  FreeOID(nullptr);
  FreeUInt64(nullptr);
  FreeVarBind(nullptr);
  FreeVarBindList(nullptr);
  FreePdu(nullptr);
  ZnFreeSnmpMessage(nullptr);
}

TEST(Values, RequestIdsHave15Bits) {
  const std::int32_t id = MakeReqId();
  EXPECT_GE(id, 0);
  EXPECT_LE(id, 32767);
}

}  // namespace
}  // namespace tally
