// Messages beyond what tests/data/ber.txt says about them: tables, contexts, refused builds.
#include <gtest/gtest.h>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "system_faults.h"

namespace tally {
namespace {

TEST(Message, OfOtherVersions) {
  RecordedLog log;
  const PduPtr pdu = every_type(RESPONSE_PDU);
  const SnmpMessagePtr message = message_of(*pdu, "kivrel");
  message->version = 3;
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &kV2cOnly), -1);
  EXPECT_EQ(message->packlet, nullptr);
  EXPECT_EQ(log.take(), "20000 ZnBuildSnmpMessage, bad SNMP version: 3");

  SnmpVersionTable odd = kV2cOnly;
  odd.count = 1000;  // the table has four rows whatever it says
  message->version = 77;
  EXPECT_EQ(ZnBuildSnmpMessage(message.get(), pdu.get(), &odd), -1);
}

TEST(Message, WhatDoesNotFitAPacketIsRefused) {
  const PduPtr pdu = every_type(RESPONSE_PDU);
  const auto room = static_cast<std::size_t>(zn_pkt_size - 11 - pdu->packlet->length);
  EXPECT_NE(message_of(*pdu, std::string(room, 'c')), nullptr);
  EXPECT_EQ(message_of(*pdu, std::string(room + 1, 'c')), nullptr);
  RecordedLog log;
  EXPECT_EQ(message_of(Pdu(), ""), nullptr);
  const SnmpMessagePtr none(ZnCreateV2cSnmpMessage(nullptr, nullptr));
  EXPECT_EQ(ZnBuildSnmpMessage(none.get(), pdu.get(), &kV2cOnly), -1);
  EXPECT_EQ(log.take(),
            "20000 FindLenOctetString, NULL input|20000 FindLenOctetString, NULL input");
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
  const std::size_t before = live_blocks();
  SnmpMessagePtr message(ZnParseSnmpMessage(&table, &two, &three, bytes.data(), 5));
  EXPECT_EQ(seen, (std::vector<void*>{&one, &two, &three}));
  EXPECT_EQ(message->version, 3);
  message.reset();
  EXPECT_EQ(live_blocks(), before);
  const SnmpMessagePtr empty(ZnParseSnmpMessage(&table, nullptr, nullptr, nullptr, 7));
  EXPECT_EQ(empty->status, kParseAsn1Error);
}

}  // namespace
}  // namespace tally
