// Runs every vector of tests/data/ber.txt: reads its bytes, compares value, rest and messages,
// writes the value again. The input is a block of exactly its size, for AddressSanitizer to watch.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "snmp/snmp.h"

namespace tally {
namespace {

const SnmpVersionTable kVersions = {1, {1}, {}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};
constexpr char kRefused[] = "refused";

// What a parser made of an input, and how to write it again.
struct Outcome {
  std::string value = kRefused;
  std::function<int(unsigned char**)> write = nullptr;
};

struct Input {
  const unsigned char* cursor;
  const unsigned char* end;
};

std::string number_or_refused(long long number, bool good) {
  return good ? std::to_string(number) : kRefused;
}

Outcome read_message(Input& in) {
  const std::shared_ptr<SnmpMessage> message(
      ZnParseSnmpMessage(&kVersions, nullptr, nullptr, in.cursor,
                         static_cast<std::int32_t>(in.end - in.cursor)),
      ZnFreeSnmpMessage);
  in.cursor = in.end;
  std::string text =
      "status " + std::to_string(message->status) + " version " + std::to_string(message->version);
  const auto add = [&text](const std::string& what, const std::string& value) {
    text.append(" ").append(what);
    if (!value.empty()) text.append(" ").append(value);
  };
  if (message->community != nullptr) {
    add("community", text_of(message->community));
    add("offset", std::to_string(message->pdu_offset));
    add("room", std::to_string(message->max_pdu_size));
  }
  if (message->packlet != nullptr) add("pdu", text_of(message->packlet));
  return {text, [message](unsigned char** out) {
            Pdu pdu = {};
            pdu.packlet = message->packlet;
            message->packlet = nullptr;
            const int result = ZnBuildSnmpMessage(message.get(), &pdu, &kVersions);
            FreeOctetString(pdu.packlet);
            if (result != 0) return result;
            *out = std::copy_n(message->packlet->octet_ptr, message->packlet->length, *out);
            return 0;
          }};
}

Outcome read_pdu(Input& in) {
  const std::shared_ptr<Pdu> pdu(
      ZnParsePdu(in.cursor, static_cast<std::int32_t>(in.end - in.cursor)), FreePdu);
  in.cursor = in.end;
  if (pdu == nullptr) return {};
  return {text_of(*pdu), [pdu](unsigned char** out) {
            if (BuildPdu(pdu.get()) != 0) return -1;
            *out = std::copy_n(pdu->packlet->octet_ptr, pdu->packlet->length, *out);
            return 0;
          }};
}

Outcome read_binding(Input& in) {
  const std::shared_ptr<VarBind> binding(ParseVarBind(&in.cursor, in.end), FreeVarBind);
  if (binding == nullptr) return {};
  return {text_of(*binding), [binding](unsigned char** out) {
            return FindLenVarBind(binding.get()) < 0 ? -1 : AddVarBind(out, binding.get(), nullptr);
          }};
}

Outcome read_value(const std::string& parser, Input& in) {
  std::int16_t type = 0;
  if (parser == "type") {
    const int tag = ParseType(&in.cursor, in.end);
    char text[16];
    std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(tag));
    return {tag < 0 ? kRefused : text};
  }
  if (parser == "length") {
    const std::int32_t length = ParseLength(&in.cursor, in.end);
    return {number_or_refused(length, length >= 0)};
  }
  if (parser == "sequence") {
    const std::int32_t length = ParseSequence(&in.cursor, in.end, &type);
    EXPECT_EQ(type, length < 0 ? -1 : SEQUENCE_TYPE);
    return {number_or_refused(length, length >= 0)};
  }
  if (parser == "implicit/A2") {
    type = RESPONSE_PDU;
    const std::int32_t length = ParseImplicitSequence(&in.cursor, in.end, &type);
    EXPECT_EQ(type, length < 0 ? -1 : RESPONSE_PDU);
    return {number_or_refused(length, length >= 0)};
  }
  if (parser == "int") {
    const std::int32_t value = ParseInt(&in.cursor, in.end, &type);
    EXPECT_TRUE(type == INTEGER_TYPE || (type == -1 && value == 0));
    return {number_or_refused(value, type >= 0),
            [=](unsigned char** out) { return AddInt(out, type, value); }};
  }
  if (parser == "uint") {
    const std::uint32_t value = ParseUInt(&in.cursor, in.end, &type);
    return {number_or_refused(value, type >= 0),
            [=](unsigned char** out) { return AddUInt(out, type, value); }};
  }
  if (parser == "uint64") {
    const std::shared_ptr<UInt64> value(ParseUInt64(&in.cursor, in.end), FreeUInt64);
    if (value == nullptr) return {};
    return {std::to_string(as_number(*value)),
            [value](unsigned char** out) { return AddUInt64(out, COUNTER_64_TYPE, value.get()); }};
  }
  if (parser == "octets") {
    const std::shared_ptr<OctetString> value(ParseOctetString(&in.cursor, in.end, &type),
                                             FreeOctetString);
    EXPECT_EQ(type == -1, value == nullptr);
    if (value == nullptr) return {};
    return {text_of(value.get()),
            [value, type](unsigned char** out) { return AddOctetString(out, type, value.get()); }};
  }
  if (parser == "null") {
    const int result = ParseNull(&in.cursor, in.end, &type);
    EXPECT_EQ(result, type == -1 ? -1 : 0);
    return {number_or_refused(type, result == 0),
            [=](unsigned char** out) { return AddNull(out, type); }};
  }
  if (parser == "oid") {
    const std::shared_ptr<OID> value(ParseOID(&in.cursor, in.end), FreeOID);
    if (value == nullptr) return {};
    return {text_of(value.get()),
            [value](unsigned char** out) { return AddOID(out, OBJECT_ID_TYPE, value.get()); }};
  }
  ADD_FAILURE() << "no parser " << parser;
  return {};
}

Outcome read(const std::string& parser, Input& in) {
  if (parser == "message") return read_message(in);
  if (parser == "pdu") return read_pdu(in);
  if (parser == "binding") return read_binding(in);
  return read_value(parser, in);
}

std::unique_ptr<unsigned char[]> exact_copy(const Bytes& bytes, std::size_t size) {
  auto copy = std::make_unique<unsigned char[]>(size);
  std::copy_n(bytes.begin(), size, copy.get());
  return copy;
}

const std::vector<BerVector>& vectors() {
  static const std::vector<BerVector> all = read_vectors(TEST_DATA "/ber.txt");
  return all;
}

void check_read(const BerVector& vector) {
  RecordedLog log;
  const auto bytes = exact_copy(vector.bytes, vector.bytes.size());
  Input in = {bytes.get(), bytes.get() + vector.bytes.size()};
  const Outcome outcome = read(vector.read, in);
  EXPECT_EQ(outcome.value, vector.value);
  EXPECT_EQ(log.take(), vector.log);
  EXPECT_EQ(static_cast<std::size_t>(in.end - in.cursor), vector.rest);

  if (!outcome.write) return;  // refused, or a part of a record
  Bytes room(4096);
  unsigned char* out = room.data();
  const int result = outcome.write(&out);
  if (!vector.write) return;
  ASSERT_EQ(result, 0);
  EXPECT_EQ(text_of(room.data(), static_cast<std::size_t>(out - room.data())),
            text_of(vector.write->data(), vector.write->size()));
}

TEST(Vectors, Read) {
  for (const BerVector& vector : vectors()) {
    SCOPED_TRACE(vector.name);
    check_read(vector);
  }
}

// A shorter input is refused, unless what is missing was ignored; and no changed byte makes anybody
// read beyond the end.
void check_cut_and_flipped(const BerVector& vector) {
  const bool whole = vector.write && *vector.write == vector.bytes;
  for (std::size_t size = 0; whole && size < vector.bytes.size(); ++size) {
    const auto bytes = exact_copy(vector.bytes, size);
    Input in = {bytes.get(), bytes.get() + size};
    const std::string value = read(vector.read, in).value;
    EXPECT_TRUE(value == kRefused || value.find("status 9") == 0) << size << " bytes: " << value;
  }
  for (std::size_t i = 0; i < std::min<std::size_t>(vector.bytes.size(), 64); ++i) {
    Bytes changed = vector.bytes;
    for (int bit = 0; bit < 8; ++bit) {
      changed[i] = static_cast<unsigned char>(vector.bytes[i] ^ (1U << bit));
      const auto bytes = exact_copy(changed, changed.size());
      Input in = {bytes.get(), bytes.get() + changed.size()};
      read(vector.read, in);
      EXPECT_LE(in.cursor, in.end);
    }
  }
}

TEST(Vectors, CutAndFlipped) {
  for (const BerVector& vector : vectors()) {
    SCOPED_TRACE(vector.name);
    check_cut_and_flipped(vector);
  }
}

// Every width's powers of two and their neighbours come back, at the size that was foretold.
TEST(Numbers, NeighboursOfPowersOfTwo) {
  for (int power = 0; power < 64; ++power) {
    for (int step = -1; step <= 1; ++step) {
      const std::uint64_t number = (std::uint64_t{1} << power) + static_cast<std::uint64_t>(step);
      SCOPED_TRACE(number);
      unsigned char room[16];
      unsigned char* out = room;
      const UInt64 wide = {static_cast<std::uint32_t>(number >> 32),
                           static_cast<std::uint32_t>(number)};
      ASSERT_EQ(AddUInt64(&out, COUNTER_64_TYPE, &wide), 0);
      EXPECT_EQ(out - room, FindLenUInt64(&wide));
      const unsigned char* in = room;
      const UInt64Ptr wide_again(ParseUInt64(&in, out));
      EXPECT_EQ(as_number(*wide_again), number);

      std::int16_t type = 0;
      in = out = room;
      AddUInt(&out, GAUGE_32_TYPE, wide.little_end);
      EXPECT_EQ(out - room, FindLenUInt(wide.little_end));
      EXPECT_EQ(ParseUInt(&in, out, &type), wide.little_end);

      const auto integer = static_cast<std::int32_t>(wide.little_end);
      in = out = room;
      AddInt(&out, INTEGER_TYPE, integer);
      EXPECT_EQ(out - room, FindLenInt(integer));
      EXPECT_EQ(ParseInt(&in, out, &type), integer);
    }
  }
}

}  // namespace
}  // namespace tally
