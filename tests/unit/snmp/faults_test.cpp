// Memory that runs out in the middle of things.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"
#include "system_faults.h"

namespace tally {
namespace {

// Whatever allocation fails, the call fails with a message of its own and nothing is lost.
TEST(Values, EveryAllocationMayFail) {
  const SnmpVersionTable versions = {1, {1}, {}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};
  const PduPtr model = every_type(RESPONSE_PDU);
  ASSERT_EQ(BuildPdu(model.get()), 0);
  SnmpMessagePtr packet(ZnCreateV2cSnmpMessage(MakeOctetStringFromText("kivrel"), nullptr));
  ASSERT_EQ(ZnBuildSnmpMessage(packet.get(), model.get(), &versions), 0);
  const Bytes trap = bytes_of(
      "A4 1E 06 03 2B 06 01 40 04 7F 00 00 0B 02 01 06 02 01 2A 43 02 00 80 30 07 30 05 06 01 2B "
      "05 00");

  const std::function<bool()> scenarios[] = {
      [&] {  // parse a message and its PDU
        const SnmpMessagePtr m(ZnParseSnmpMessage(
            &versions, nullptr, nullptr, packet->packlet->octet_ptr, packet->packlet->length));
        if (m == nullptr || m->packlet == nullptr) return false;
        return PduPtr(ZnParsePdu(m->packlet->octet_ptr, m->packlet->length)) != nullptr;
      },
      [&] {
        return PduPtr(ZnParsePdu(trap.data(), static_cast<std::int32_t>(trap.size()))) != nullptr;
      },
      [&] {  // make and build a request
        const OidPtr object = oid({1, 3, 6, 1, 2, 1, 1, 3, 0});
        const PduPtr pdu(MakePdu(GET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
        if (!object || !pdu) return false;
        if (LinkVarBind(pdu.get(), MakeVarBindWithNull(object.get(), nullptr)) != 0) return false;
        if (BuildPdu(pdu.get()) != 0) return false;
        OctetStringPtr community(MakeOctetStringFromText("kivrel"));
        const SnmpMessagePtr m(community ? ZnCreateV2cSnmpMessage(community.get(), nullptr)
                                         : nullptr);
        if (m == nullptr) return false;
        community.release();
        return ZnBuildSnmpMessage(m.get(), pdu.get(), &versions) == 0;
      },
      [&] { return VarBindListPtr(CloneVarBindList(model->var_bind_list)) != nullptr; },
      [&] {
        const SnmpMessagePtr m(ZnCreateV2cSnmpMessage(packet->community, &faults));  // copies it
        return m != nullptr && m->context == &faults;
      },
      [&] {
        const OID* const name = model->var_bind_list->name;
        return VarBindPtr(MakeVarBindWithValue(name, name, NULL_TYPE, nullptr)) != nullptr;
      },
      [&] { return UInt64Ptr(MakeCounter64(1, 2)) != nullptr; },
      [&] { return OidPtr(MakeOIDFromHex("0102")) != nullptr; },
      [&] {
        OctetString* time = nullptr;
        const int result = GetSystemDateAndTime(8, &time);
        FreeOctetString(time);
        return result == 0;
      },
  };
  std::set<std::string> logged;
  for (const auto& scenario : scenarios) {
    bool failed = true;
    for (int n = 1; failed; ++n) {
      RecordedLog log;
      FreeKeptRecords();
      const std::size_t before = live_blocks();
      faults = {};
      faults.failing_malloc = n;
      const bool succeeded = scenario();
      failed = faults.mallocs >= n;
      faults = {};
      FreeKeptRecords();
      EXPECT_EQ(live_blocks(), before);
      EXPECT_EQ(succeeded, !failed);
      for (const std::string& line : log.take()) logged.insert(line);
    }
  }
  for (const char* text : {"MakeOctetString, os_ptr malloc",
                           "MakeOctetString2, os_ptr malloc",
                           "MakeOID, oid malloc failed",
                           "CatOID, MakeOID failed",
                           "CloneUInt64: Cannot malloc return_val",
                           "MakeCounter64, counter64 malloc failed",
                           "MakeVarBindWithValue: vb malloc",
                           "MakeVarBindWithValue: cannot malloc vb->name.",
                           "MakeVarBindWithNull, vb malloc",
                           "MakeVarBindWithNull: cannot malloc vb->name.",
                           "CloneVarBind: vb malloc",
                           "CloneVarBind: Unable to clone vb->name",
                           "CloneVarBind: Unable to clone vb->value",
                           "MakePdu, pdu_ptr malloc",
                           "BuildPdu: pdu_ptr->packlet MakeOctetString failed",
                           "ParseUInt64, uint64_ptr malloc",
                           "ParseOctetString, os_ptr",
                           "ParseOID, oid_ptr MakeOID",
                           "ParseVarBind, vb_ptr",
                           "ParsePdu, pdu_ptr malloc",
                           "ZnParseSnmpMessage:  snmp_msg malloc",
                           "ZnParseV1SnmpMessage: Failed to create snmp_msg PDU packlet",
                           "ZnCreateV2cSnmpMessage:  snmp_msg malloc",
                           "ZnCreateV2cSnmpMessage:  snmp_msg->community malloc",
                           "ZnBuildV1SnmpMessage: malloc",
                           "GetSystemDateAndTime: MakeOctetString failed"}) {
    EXPECT_EQ(logged.count("1000 " + std::string(text)), 1U) << text;
  }
}

}  // namespace
}  // namespace tally
