// Runs every vector of tests/data/ber.txt: reads its bytes, compares value, rest and messages,
// writes the value again. The input is a block of exactly its size, for AddressSanitizer to watch.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

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

Outcome number(long long value, bool good,
               const std::function<int(unsigned char**)>& write = nullptr) {
  return {good ? std::to_string(value) : kRefused, write};
}

// An outcome of a record, which is refused when there is none; `add` writes it at a cursor.
template <typename T, typename Free, typename Add>
Outcome record(T* parsed, Free free, Add add) {
  if (parsed == nullptr) return {};
  const std::shared_ptr<T> kept(parsed, free);
  return {text_of(parsed), [kept, add](unsigned char** out) { return add(out, kept.get()); }};
}

int copy(unsigned char** out, const OctetString& built) {
  *out = std::copy_n(built.octet_ptr, built.length, *out);
  return 0;
}

int write_message(unsigned char** out, SnmpMessage* message) {
  Pdu pdu = {};
  pdu.packlet = std::exchange(message->packlet, nullptr);
  const int result = ZnBuildSnmpMessage(message, &pdu, &kVersions);
  FreeOctetString(pdu.packlet);
  return result != 0 ? result : copy(out, *message->packlet);
}

int write_pdu(unsigned char** out, Pdu* pdu) {
  return BuildPdu(pdu) != 0 ? -1 : copy(out, *pdu->packlet);
}

int write_binding(unsigned char** out, VarBind* binding) {
  return FindLenVarBind(binding) < 0 ? -1 : AddVarBind(out, binding, nullptr);
}

// Runs the parser of that name. Those that set a type set it to -1 when they refuse.
Outcome read(const std::string& parser, Input& in) {
  std::int16_t type = 0;
  if (parser == "message" || parser == "pdu") {
    const Input all = std::exchange(in, {in.end, in.end});
    const auto size = static_cast<std::int32_t>(all.end - all.cursor);
    if (parser == "pdu") return record(ZnParsePdu(all.cursor, size), FreePdu, write_pdu);
    return record(ZnParseSnmpMessage(&kVersions, nullptr, nullptr, all.cursor, size),
                  ZnFreeSnmpMessage, write_message);
  }
  if (parser == "binding") {
    return record(ParseVarBind(&in.cursor, in.end), FreeVarBind, write_binding);
  }
  if (parser == "type") {
    const int tag = ParseType(&in.cursor, in.end);
    const auto byte = static_cast<unsigned char>(tag);
    return {tag < 0 ? kRefused : text_of(&byte, 1)};
  }
  if (parser == "length") {
    const std::int32_t length = ParseLength(&in.cursor, in.end);
    return number(length, length >= 0);
  }
  if (parser == "sequence" || parser == "implicit/A2") {
    const bool implicit = parser != "sequence";
    const std::int16_t wanted = implicit ? RESPONSE_PDU : SEQUENCE_TYPE;
    type = wanted;
    const std::int32_t length =
        (implicit ? ParseImplicitSequence : ParseSequence)(&in.cursor, in.end, &type);
    EXPECT_EQ(type, length < 0 ? -1 : wanted);
    return number(length, length >= 0);
  }
  if (parser == "int") {
    const std::int32_t value = ParseInt(&in.cursor, in.end, &type);
    EXPECT_TRUE(type == INTEGER_TYPE || (type == -1 && value == 0));
    return number(value, type >= 0, [=](auto out) { return AddInt(out, type, value); });
  }
  if (parser == "uint") {
    const std::uint32_t value = ParseUInt(&in.cursor, in.end, &type);
    return number(value, type >= 0, [=](auto out) { return AddUInt(out, type, value); });
  }
  if (parser == "uint64") {
    return record(ParseUInt64(&in.cursor, in.end), FreeUInt64,
                  [](auto out, auto value) { return AddUInt64(out, COUNTER_64_TYPE, value); });
  }
  if (parser == "octets") {
    OctetString* const value = ParseOctetString(&in.cursor, in.end, &type);
    EXPECT_EQ(type == -1, value == nullptr);
    return record(value, FreeOctetString,
                  [=](auto out, auto string) { return AddOctetString(out, type, string); });
  }
  if (parser == "null") {
    const int result = ParseNull(&in.cursor, in.end, &type);
    EXPECT_EQ(result, type == -1 ? -1 : 0);
    return number(type, result == 0, [=](auto out) { return AddNull(out, type); });
  }
  if (parser == "oid") {
    return record(ParseOID(&in.cursor, in.end), FreeOID,
                  [](auto out, auto value) { return AddOID(out, OBJECT_ID_TYPE, value); });
  }
  ADD_FAILURE() << "no parser " << parser;
  return {};
}

std::unique_ptr<unsigned char[]> exact_copy(const Bytes& bytes, std::size_t size) {
  auto copy = std::make_unique<unsigned char[]>(size);
  std::copy_n(bytes.begin(), size, copy.get());
  return copy;
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

// A shorter input is refused, unless what is missing was ignored. What comes of changed bytes is
// for the fuzzer to find.
void check_cut(const BerVector& vector) {
  const bool whole = vector.write && *vector.write == vector.bytes;
  for (std::size_t size = 0; whole && size < vector.bytes.size(); ++size) {
    const auto bytes = exact_copy(vector.bytes, size);
    Input in = {bytes.get(), bytes.get() + size};
    const std::string value = read(vector.read, in).value;
    EXPECT_TRUE(value == kRefused || value.find("status 9") == 0) << size << " bytes: " << value;
  }
}

TEST(Vectors, ReadWrittenAndCut) {
  for (const BerVector& vector : read_vectors(TEST_DATA "/ber.txt")) {
    SCOPED_TRACE(vector.name);
    check_read(vector);
    check_cut(vector);
  }
}

}  // namespace
}  // namespace tally
