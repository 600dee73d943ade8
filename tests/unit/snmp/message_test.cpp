// Messages beyond what tests/data/ber.txt says about them: tables, contexts, refused builds.
#include <gtest/gtest.h>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

const SnmpVersionTable kVersions = {1, {1}, {}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

SnmpMessagePtr message_with(const std::string& community) {
  return SnmpMessagePtr(
      ZnCreateV2cSnmpMessage(MakeOctetStringFromText(community.c_str()), nullptr));
}

PduPtr built() {
  PduPtr pdu = every_type(RESPONSE_PDU);
  EXPECT_EQ(BuildPdu(pdu.get()), 0);
  return pdu;
}

TEST(Message, BuiltTwiceAndUnderOtherVersions) {
  const PduPtr pdu = built();
  const SnmpMessagePtr message = message_with("kivrel");
  for (int i = 0; i < 2; ++i)
    ASSERT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &kVersions), 0);

  RecordedLog log;
  message->version = 3;
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &kVersions), -1);
  EXPECT_EQ(message->packlet, nullptr);
  EXPECT_EQ(log.take(), std::vector<std::string>{"20000 ZnBuildSnmpMessage, bad SNMP version: 3"});

  // A version is written as an unsigned number, which no reader of integers takes when negative.
  SnmpVersionTable odd = kVersions;
  odd.version[0] = message->version = -1;
  ASSERT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &odd), 0);
  EXPECT_NE(text_of(message->packlet).find(" 02 05 00 FF FF FF FF 04 06"), std::string::npos);
  EXPECT_EQ(text_of(message->packlet).find(text_of(pdu->packlet)) / 3,
            static_cast<std::size_t>(message->packlet->length - pdu->packlet->length));
  odd.count = 1000;  // the table has four rows whatever it says
  message->version = 77;
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &odd), -1);
}

TEST(Message, WhatDoesNotFitAPacketIsRefused) {
  const PduPtr pdu = built();
  const auto room = static_cast<std::size_t>(zn_pkt_size - 11 - pdu->packlet->length);
  for (const std::size_t beyond : {0U, 1U, 100U}) {
    const SnmpMessagePtr message = message_with(std::string(room + beyond, 'c'));
    EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &kVersions), beyond == 0 ? 0 : -1);
    EXPECT_EQ(message->packlet != nullptr, beyond == 0);
  }
  RecordedLog log;
  const SnmpMessagePtr none = message_with("");
  Pdu unbuilt = {};
  EXPECT_EQ(ZnBuildSnmpMessage(none.get(), &unbuilt, &kVersions), -1);
  FreeOctetString(none->community);
  none->community = nullptr;
  EXPECT_EQ(ZnBuildSnmpMessage(none.get(), pdu.get(), &kVersions), -1);
  EXPECT_EQ(log.take(), std::vector<std::string>(2, "20000 FindLenOctetString, NULL input"));
}

TEST(Message, TheRowsArgumentsArePassedOn) {
  static std::vector<void*> seen;
  int one = 1;
  int two = 2;
  int three = 3;
  SnmpVersionTable table = {2, {1, 3}, {nullptr, &one}, {}, {}};
  table.parse[1] = [](SnmpMessage* message, const SnmpVersionTable*, void* arg, void* arg2,
                      void* arg3, const unsigned char*, std::int32_t) {
    seen = {arg, arg2, arg3};
    message->user_name = MakeOctetStringFromText("freed with the message");
  };
  const Bytes bytes = bytes_of("30 03 02 01 03");
  const SnmpMessagePtr message(ZnParseSnmpMessage(&table, &two, &three, bytes.data(), 5));
  EXPECT_EQ(seen, (std::vector<void*>{&one, &two, &three}));
  EXPECT_EQ(message->version, 3);
  const SnmpMessagePtr empty(ZnParseSnmpMessage(&table, nullptr, nullptr, nullptr, 7));
  EXPECT_EQ(empty->status, kParseAsn1Error);
}

}  // namespace
}  // namespace tally
