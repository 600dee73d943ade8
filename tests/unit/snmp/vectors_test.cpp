// Runs every vector of tests/data/ber.txt: reads its bytes, writes the value again, compares what
// is seen with the lines of the file.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "ber_vectors.h"
#include "recorded_log.h"

namespace tally {
namespace {

// One input, in a block of exactly its size for AddressSanitizer to watch, and how it is read.
// Every routine returns the lines of the value that was read, none for a refused one.
struct Reader {
  const Bytes bytes;
  const unsigned char* cursor = bytes.data();
  const unsigned char* end = cursor + bytes.size();
  RecordedLog log = {};

  // `add` writes the value at a cursor.
  template <typename Add>
  std::string value(const std::string& text, Add add) {
    log_context = nullptr;  // what writers log is not in the file
    Bytes room(4096);
    unsigned char* out = room.data();
    const bool written = add(&out) == 0;
    room.resize(static_cast<std::size_t>(out - room.data()));
    const bool same = written && room == bytes;
    std::string outcome = (same ? "==" : "=") + (text.empty() ? "" : " " + text);
    if (written && !same) outcome += "|write " + text_of(room.data(), room.size());
    return outcome;
  }

  std::string part(const std::string& text, bool good) {
    return good ? value(text, [](auto) { return -1; }) : "";
  }

  template <typename T, typename Free, typename Add>
  std::string record(T* parsed, Free free, Add add) {
    const std::unique_ptr<T, Free> kept(parsed, free);
    return parsed ? value(text_of(parsed), [=](auto out) { return add(out, parsed); }) : "";
  }

  // Those that set a type set it to -1 when they refuse, and return 0.
  template <typename Number>
  std::string number(Number (*parse)(const unsigned char**, const unsigned char*, std::int16_t*),
                     int (*add)(unsigned char**, std::int16_t, Number)) {
    std::int16_t type = 0;
    const Number parsed = parse(&cursor, end, &type);
    EXPECT_TRUE(type > 0 || (type == -1 && parsed == 0));
    if (type < 0) return "";
    return value(std::to_string(parsed), [=](auto out) { return add(out, type, parsed); });
  }

  template <typename Parse>
  std::string sequence(Parse parse, std::int16_t wanted) {
    std::int16_t type = wanted;
    const std::int32_t length = parse(&cursor, end, &type);
    EXPECT_EQ(type, length < 0 ? -1 : wanted);
    return part(std::to_string(length), length >= 0);
  }

  std::string read(const std::string& parser) {
    std::int16_t type = 0;
    if (parser == "message" || parser == "pdu") {
      const auto* const all = std::exchange(cursor, end);
      const auto size = static_cast<std::int32_t>(bytes.size());
      if (parser == "pdu") return record(ZnParsePdu(all, size), FreePdu, write_pdu);
      return record(ZnParseSnmpMessage(&kV2cOnly, nullptr, nullptr, all, size), ZnFreeSnmpMessage,
                    write_message);
    }
    if (parser == "binding") return record(ParseVarBind(&cursor, end), FreeVarBind, write_binding);
    if (parser == "type") {
      const int tag = ParseType(&cursor, end);
      const auto byte = static_cast<unsigned char>(tag);
      return part(text_of(&byte, 1), tag >= 0);
    }
    if (parser == "length") {
      const std::int32_t length = ParseLength(&cursor, end);
      return part(std::to_string(length), length >= 0);
    }
    if (parser == "sequence") return sequence(ParseSequence, SEQUENCE_TYPE);
    if (parser == "implicit/A2") return sequence(ParseImplicitSequence, RESPONSE_PDU);
    if (parser == "int") return number(ParseInt, AddInt);
    if (parser == "uint") return number(ParseUInt, AddUInt);
    if (parser == "uint64") {
      return record(ParseUInt64(&cursor, end), FreeUInt64,
                    [](auto out, auto value) { return AddUInt64(out, COUNTER_64_TYPE, value); });
    }
    if (parser == "octets") {
      OctetString* const string = ParseOctetString(&cursor, end, &type);
      EXPECT_EQ(type == -1, string == nullptr);
      return record(string, FreeOctetString,
                    [=](auto out, auto value) { return AddOctetString(out, type, value); });
    }
    if (parser == "null") {
      const int result = ParseNull(&cursor, end, &type);
      EXPECT_EQ(result, type == -1 ? -1 : 0);
      if (result != 0) return "";
      return value(std::to_string(type), [=](auto out) { return AddNull(out, type); });
    }
    EXPECT_EQ(parser, "oid");
    return record(ParseOID(&cursor, end), FreeOID,
                  [](auto out, auto value) { return AddOID(out, OBJECT_ID_TYPE, value); });
  }

  static int copy(unsigned char** out, const OctetString& built) {
    *out = std::copy_n(built.octet_ptr, built.length, *out);
    return 0;
  }
  static int write_pdu(unsigned char** out, Pdu* pdu) {
    return BuildPdu(pdu) != 0 ? -1 : copy(out, *pdu->packlet);
  }
  static int write_message(unsigned char** out, SnmpMessage* message) {
    const OctetStringPtr packlet(std::exchange(message->packlet, nullptr));
    if (packlet == nullptr || packlet->length == 0) return -1;  // nothing to send
    Pdu pdu = {};
    pdu.packlet = packlet.get();
    return ZnBuildSnmpMessage(message, &pdu, &kV2cOnly) != 0 ? -1 : copy(out, *message->packlet);
  }
  static int write_binding(unsigned char** out, VarBind* binding) {
    return FindLenVarBind(binding) < 0 ? -1 : AddVarBind(out, binding, nullptr);
  }
};

// What is seen of the first `size` bytes of a vector.
std::string seen(const BerVector& vector, std::ptrdiff_t size) {
  Reader reader = {{vector.bytes.begin(), vector.bytes.begin() + size}};
  const std::string value = reader.read(vector.parser);
  const std::ptrdiff_t rest = reader.end - reader.cursor;
  std::string outcome;
  for (const std::string& part :
       {value, rest > 0 ? "rest " + std::to_string(rest) : "", reader.log.take()}) {
    if (!outcome.empty() && !part.empty()) outcome += '|';
    outcome += part;
  }
  return outcome;
}

TEST(Vectors, ReadWrittenAndCut) {
  for (const BerVector& vector : read_vectors(TEST_DATA "/ber.txt")) {
    SCOPED_TRACE(vector.name);
    const auto size = static_cast<std::ptrdiff_t>(vector.bytes.size());
    EXPECT_EQ(seen(vector, size), vector.outcome);
    if (vector.parser != "pdu" && vector.parser != "message") {
      Bytes behind = vector.bytes;
      behind.insert(behind.begin(), 0);
      Reader beyond = {behind};  // its cursor is beyond the end, where there would be a value
      beyond.end = beyond.cursor++;
      EXPECT_EQ(beyond.read(vector.parser), "");
      EXPECT_EQ(beyond.cursor, beyond.end + 1);
    }
    // A shorter input is refused. What comes of changed bytes is for the fuzzer to find.
    for (std::ptrdiff_t cut = 0; vector.outcome.starts_with("==") && cut < size; ++cut) {
      const std::string outcome = seen(vector, cut);
      EXPECT_TRUE(!outcome.starts_with("=") || outcome.starts_with("= status 9")) << outcome;
    }
  }
}

}  // namespace
}  // namespace tally
