// Constructors, copies, destructors, the encoder's refusals, and memory that runs out.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <utility>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "system_faults.h"

namespace tally {
namespace {

// Expects what was just called to have failed, with these lines, a bar between them.
class Refusals : public testing::Test {
 protected:
  template <typename Result>
  void refused(Result result, const std::string& log) {
    if constexpr (std::is_same_v<Result, int>) {
      EXPECT_EQ(result, -1) << log;
    } else {
      EXPECT_EQ(result, nullptr) << log;
    }
    logged(log);
  }
  void logged(const std::string& log) { EXPECT_EQ(log_.take(), log); }

 private:
  RecordedLog log_;
};

TEST_F(Refusals, OfMakersAndWriters) {
  std::int32_t number = 7;
  std::uint32_t sids[2] = {1, 3};
  OctetString huge = {nullptr, 40000};
  const OctetString longer_still = {nullptr, 0x1000000};
  const OID long_oid = {40000, sids};
  const OID negative = {-1, nullptr};
  const OidPtr name = oid({1, 3, 6});
  const OidPtr longest(MakeOID(nullptr, 128));
  const OidPtr index = oid({3, 1, 2});
  VarBind odd = {};
  odd.data_length = -1;
  unsigned char* out = nullptr;
  const auto bind = [&](std::int16_t type, void* value) {
    return MakeVarBindWithValue(name.get(), nullptr, type, value);
  };
  const auto pdu = [](std::int16_t type, OID* enterprise) {
    return MakePdu(type, 1, 0, 0, enterprise, nullptr, 0, 0, 0);
  };
  const std::string lenlen = "20000 Lenlen: Length greater than 0x01000000???";
  refused(MakeOctetString(nullptr, 2049), "20000 MakeOctetString: Bad octetstring length: 2049");
  refused(MakeOctetString(nullptr, -1), "20000 MakeOctetString: Bad octetstring length: -1");
  refused(MakeOctetStringFromHex("00:1"), "20000 MakeOctetStringFromHex: Bad hex text: 00:1");
  refused(MakeOID(nullptr, 129), "20000 MakeOID: Bad sid string length: 129");
  refused(CatOID(name.get(), &negative), "20000 CatOID: Too long: 2");
  refused(MakeLenOID(index->oid_ptr, -1), "20000 MakeLenOID: Bad sid string length: -1");
  refused(MakeOIDSubLen(index->oid_ptr, 3), "20000 MakeOIDSubLen: Bad sid string length: 3");
  refused(MakeVarBindWithNull(nullptr, nullptr), "1000 MakeVarBindWithNull: Null object OID.");
  refused(MakeVarBindWithNull(longest.get(), name.get()),
          "20000 CatOID: Too long: 131|1000 MakeVarBindWithNull: cannot malloc vb->name.");
  refused(bind(0x47, &number), "20000 MakeVarBindWithValue: Illegal type: 0x47");
  refused(bind(INTEGER_TYPE, nullptr), "1000 MakeVarBindWithValue: Null value.");
  refused(bind(COUNTER_64_TYPE, nullptr), "20000 FindLenUInt64, NULL input");
  refused(bind(OCTET_STRING_TYPE, &huge), "20000 FindLenOctetString, lenlen");
  refused(pdu(0xA9, nullptr), "20000 MakePdu: illegal type: 0xa9");
  refused(pdu(TRAP_PDU, nullptr), "1000 MakePdu: Trap type but no Enterprise.");
  refused(pdu(TRAP_PDU, name.get()), "1000 MakePdu: Trap type but no Agent_addr.");
  refused(LinkVarBind(nullptr, nullptr), "1000 LinkVarBind: Trying to add Null Variable");
  refused(CloneUInt64(nullptr), "1000 CloneUInt64: value passed in is NULL");
  refused(CloneOctetString(nullptr), "1000 CloneOctetString: value passed in is NULL");
  refused(CloneVarBind(nullptr), "1000 CloneVarBind: value passed in is NULL");
  refused(CloneVarBindList(nullptr), "1000 CloneVarBindList: value passed in is NULL");
  refused(AddOctetString(&out, OCTET_STRING_TYPE, &longer_still),
          lenlen + "|20000 AddOctetString,lenlen");
  refused(AddOID(&out, OBJECT_ID_TYPE, &long_oid), "20000 AddOID: lenlen");
  refused(AddVarBind(&out, &odd, nullptr), lenlen + "|20000 AddVarBind: lenlen:");
  const VarBindPtr changed(MakeVarBindWithNull(name.get(), nullptr));
  changed->name->oid_ptr[2] = 128;
  refused(AddVarBind(&out, changed.get(), nullptr), "");
  EXPECT_EQ(DoLenLen(0xFFFF), 3);
  EXPECT_EQ(DoLenLen(0x10000), 4);
  EXPECT_EQ(DoLenLen(0xFFFFFF), 4);
}

// A pointer may be moved within its record's block, or to another one, or be null.
TEST_F(Refusals, OfFreeingWhatIsNotSeparate) {
  const std::size_t before = live_blocks();
  for (const int moved : {0, 3, 8}) {
    OctetString* const string = MakeOctetString(nullptr, 8);
    string->octet_ptr += moved;
    string->length = 0;
    FreeOctetString(string);
    OID* const name = MakeOID(nullptr, 8);
    name->oid_ptr += moved;
    name->length = 0;
    FreeOID(name);
  }
  for (const bool separate : {false, true}) {
    OctetString* const string = MakeOctetString(nullptr, 1);
    string->octet_ptr = separate ? static_cast<unsigned char*>(std::malloc(9)) : nullptr;
    unsigned char* out = nullptr;  // nothing is written from a null pointer
    if (!separate) {
      EXPECT_EQ(AddOctetString(&out, OCTET_STRING_TYPE, string), -1);
      logged("20000 AddOctetString,lenlen");
    }
    FreeOctetString(string);
    logged(separate ? "1000 freed octet string with separate octet_ptr" : "");
    OID* const name = MakeOID(nullptr, 1);
    name->oid_ptr = separate ? static_cast<std::uint32_t*>(std::malloc(12)) : nullptr;
    name->length = 20;
    if (!separate) {
      EXPECT_EQ(AddOID(&out, OBJECT_ID_TYPE, name), -1);
      logged("1000 AddOID: Attempting to encode oid with length < 2");
    }
    FreeOID(name);
    logged(separate ? "1000 freed oid with separate oid_ptr" : "");
    const OidPtr whole(MakeOID(nullptr, 20));  // has a block of its own size
  }
  EXPECT_EQ(live_blocks(), before);
}

// Parts of a decoded binding's block can be replaced and, as copies, be given to others.
TEST(Values, ADecodedBindingIsTakenApart) {
  const Bytes bytes = bytes_of("30 07 06 01 2B 04 02 61 62");
  const std::size_t before = live_blocks();
  const unsigned char* cursor = bytes.data();
  VarBindPtr binding(ParseVarBind(&cursor, cursor + bytes.size()));
  OID* const name = binding->name;
  OctetString* const value = binding->value.os_value;
  VarBindPtr string(MakeVarBindWithValue(name, nullptr, OCTET_STRING_TYPE, value));
  PduPtr pdu(MakePdu(TRAP_PDU, 0, 0, 0, name, value, 6, 1, 0));
  LinkVarBind(pdu.get(), MakeVarBindWithValue(name, nullptr, OBJECT_ID_TYPE, name));
  FreeOID(name);
  binding->name = oid({1, 3, 6}).release();
  FreeOctetString(value);
  binding->value.os_value = MakeOctetStringFromText("c");
  EXPECT_EQ(text_of(binding.get()), "1.3.6=4:63");
  binding.reset();
  EXPECT_EQ(text_of(string.get()), "1.3=4:61 62");
  EXPECT_EQ(text_of(pdu.get()), "A4 1.3 61 62 6 1 0 [1.3=6:1.3]");
  string.reset();
  pdu.reset();
  EXPECT_EQ(live_blocks(), before);
}

// Something that was built is spoilt and built again: that fails, and leaves no packlet.
TEST_F(Refusals, OfAPduThatWasBuilt) {
  using Spoil = std::function<void(Pdu&, VarBind&)>;
  const std::string list = "20000 FindLenVarBind, lenlen|20000 BuildPdu: varbindlen:";
  const std::pair<Spoil, std::string> spoilers[] = {
      {[](Pdu& p, VarBind&) { p.type = 0xA9; }, "20000 BuildPdu: bad pdu type: a9"},
      {[](Pdu& p, VarBind&) { FreeOID(std::exchange(p.enterprise, nullptr)); },
       "20000 FindLenOID, lenlen|20000 BuildPdu: temp_data_len (1)"},
      {[](Pdu& p, VarBind&) { FreeOctetString(std::exchange(p.agent_addr, nullptr)); },
       "20000 FindLenOctetString, NULL input|20000 BuildPdu: temp_data_len (2)"},
      {[](Pdu&, VarBind& b) { FreeOctetString(std::exchange(b.value.os_value, nullptr)); },
       "20000 FindLenOctetString, NULL input|" + list},
      {[](Pdu&, VarBind& b) { b.name->length = 1; },
       "1000 AddOID: Attempting to encode oid with length < 2|20000 AddVarBind: AddOID"},
      {[](Pdu&, VarBind& b) { b.name->oid_ptr[1] = 40; },
       "1000 AddOID: illegal value for first two subids|20000 AddVarBind: AddOID"},
      {[](Pdu&, VarBind& b) { b.value.os_value->length = 2048; },  // no packet is as long
       "20000 MakeOctetString: Bad octetstring length: 2086|"
       "1000 BuildPdu: pdu_ptr->packlet MakeOctetString failed"},
      {[](Pdu& p, VarBind& b) {  // one by one they can be measured
         LinkVarBind(&p, CloneVarBind(&b));
         b.value.os_value->length = b.next_var->value.os_value->length = 0x4000;
       },
       list}};
  for (const auto& [spoil, log] : spoilers) {
    const PduPtr pdu(
        MakePdu(TRAP_PDU, 0, 0, 0, oid({1, 3, 6}).release(), MakeOctetString(nullptr, 4), 6, 1, 0));
    LinkVarBind(pdu.get(), MakeVarBindWithValue(oid({1, 3}).get(), nullptr, OCTET_STRING_TYPE,
                                                MakeOctetString(nullptr, 3)));
    EXPECT_EQ(BuildPdu(pdu.get()), 0);
    spoil(*pdu, *pdu->var_bind_list);
    refused(BuildPdu(pdu.get()), log);
    EXPECT_EQ(pdu->packlet, nullptr);
    pdu->type = TRAP_PDU;  // for the destructor
  }
}

TEST(Values, EachIsWrittenByItself) {
  unsigned char bytes[64];
  unsigned char* out = bytes;
  const OidPtr name = oid({1, 3, 128});
  const OctetStringPtr string(MakeOctetStringFromText("ab"));
  const UInt64Ptr counter(MakeCounter64(0x80, 1));
  const VarBindPtr binding(MakeVarBindWithNull(name.get(), nullptr));
  EXPECT_EQ(AddInt(&out, INTEGER_TYPE, -129), 0);
  EXPECT_EQ(AddUInt(&out, GAUGE_32_TYPE, 0x80000000), 0);
  EXPECT_EQ(AddUInt64(&out, COUNTER_64_TYPE, counter.get()), 0);
  EXPECT_EQ(AddOctetString(&out, OPAQUE_TYPE, string.get()), 0);
  EXPECT_EQ(AddNull(&out, NULL_TYPE), 0);
  EXPECT_EQ(AddOID(&out, OBJECT_ID_TYPE, name.get()), 0);
  EXPECT_EQ(AddVarBind(&out, binding.get(), nullptr), 0);
  EXPECT_EQ(text_of(bytes, static_cast<std::size_t>(out - bytes)),
            "02 02 FF 7F 42 05 00 80 00 00 00 46 06 00 80 00 00 00 01 44 02 61 62 05 00 "
            "06 03 2B 81 00 30 07 06 03 2B 81 00 05 00");
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
  const std::pair<const char*, const char*> escapes[] = {
      {"a\\tb", "61 09 62"}, {"\\n\\r\\q\\\\", "0A 0D 71 5C"}, {"a\\", "61 5C"}, {nullptr, ""}};
  for (const auto& [text, bytes] : escapes) {
    EXPECT_EQ(text_of(OctetStringPtr(MakeOctetStringFromText(text)).get()), bytes);
  }
  for (const char* text : {"00:1b:ff", "00 1B FF", "00-1b-Ff", "001bff", "0x001bff"}) {
    EXPECT_EQ(text_of(OidPtr(MakeOIDFromHex(text)).get()), "0.27.255");
  }
  for (const char* text : {"0", "0g", "00:", ":00", "00::11", "00 1 2", "\xff\xff"}) {
    EXPECT_EQ(OctetStringPtr(MakeOctetStringFromHex(text)), nullptr) << text;
  }
  const OidPtr tail = oid({6, 1});
  EXPECT_EQ(text_of(OidPtr(CatOID(nullptr, tail.get())).get()), "6.1");
  EXPECT_EQ(text_of(OidPtr(MakeLenOID(tail->oid_ptr, 2)).get()), "2.6.1");
  EXPECT_EQ(text_of(OidPtr(MakeLenOID(nullptr, 2)).get()), "0");
  EXPECT_EQ(text_of(OidPtr(MakeOIDSubLen(oid({2, 6, 1, 9})->oid_ptr, 4)).get()), "6.1");
}

TEST(Values, BindingsKeepTheirOrderAndTheirCopiesAreDeep) {
  PduPtr pdu = every_type(RESPONSE_PDU);
  const std::string whole = text_of(pdu.get());
  PduPtr copy(MakePdu(RESPONSE_PDU, 7, 0, 0, nullptr, nullptr, 0, 0, 0));
  LinkVarBind(copy.get(), CloneVarBindList(pdu->var_bind_list));
  LinkVarBind(copy.get(), MakeVarBindWithNull(oid({1, 3}).get(), nullptr));
  pdu.reset();
  EXPECT_EQ(text_of(copy.get()), whole + " [1.3=5:]");
  ASSERT_EQ(BuildPdu(copy.get()), 0);
  const std::string right = text_of(copy->packlet);
  for (const int wrong : {-2, 100}) {  // sizes are mended before anything is built anew
    for (VarBind* b = copy->var_bind_list; b; b = b->next_var) {
      b->name_size = static_cast<std::int16_t>(b->name_size + wrong);
      b->value_size = static_cast<std::int16_t>(b->value_size - wrong / 2);
    }
    ASSERT_EQ(BuildPdu(copy.get()), 0);
    EXPECT_EQ(text_of(copy->packlet), right) << wrong;
  }
}

// Whatever allocation fails, the call fails, says so, and loses nothing.
TEST(Values, EveryAllocationMayFail) {
  const PduPtr model = every_type(RESPONSE_PDU);
  const SnmpMessagePtr packet = message_of(*model, "kivrel");
  const PduPtr trap(
      MakePdu(TRAP_PDU, 0, 0, 0, oid({1, 3, 6}).release(), MakeOctetString(nullptr, 4), 6, 42, 0));
  ASSERT_EQ(BuildPdu(trap.get()), 0);
  const OID* const name = model->var_bind_list->name;

  const auto everything = [&] {
    const SnmpMessagePtr message(ZnParseSnmpMessage(
        &kV2cOnly, nullptr, nullptr, packet->packlet->octet_ptr, packet->packlet->length));
    if (!message || !message->packlet) return false;
    const PduPtr response(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
    const PduPtr parsed_trap(ZnParsePdu(trap->packlet->octet_ptr, trap->packlet->length));
    const PduPtr request(MakePdu(GET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
    if (!request || LinkVarBind(request.get(), MakeVarBindWithNull(name, nullptr)) != 0 ||
        BuildPdu(request.get()) != 0) {
      return false;
    }
    const SnmpMessagePtr built = message_of(*request, "kivrel");
    const SnmpMessagePtr copying(ZnCreateV2cSnmpMessage(packet->community, &faults));
    const VarBindListPtr clones(CloneVarBindList(model->var_bind_list));
    const VarBindPtr joined(MakeVarBindWithValue(name, name, NULL_TYPE, nullptr));
    const UInt64Ptr counter(MakeCounter64(1, 2));
    const OidPtr from_hex(MakeOIDFromHex("0102"));
    OctetString* out = nullptr;
    const bool told = GetSystemDateAndTime(8, &out) == 0;
    const OctetStringPtr time(out);
    return told && response && parsed_trap && built && copying && copying->context == &faults &&
           clones && joined && counter && from_hex;
  };
  bool failed = true;
  for (int n = 1; failed; ++n) {
    RecordedLog log;
    const std::size_t before = live_blocks();
    faults = {n, 0};
    const bool succeeded = everything();
    failed = std::exchange(faults, {}).mallocs >= n;
    EXPECT_EQ(live_blocks(), before);
    EXPECT_EQ(succeeded, !failed) << n;
    EXPECT_EQ(log.take().empty(), !failed) << n;
  }
}

}  // namespace
}  // namespace tally
