// Runs every vector of tests/data/ber.txt: reads its bytes and compares what is seen with the lines
// of the file. The test against libsnmp sees to what is written.
#include <gtest/gtest.h>

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

  template <typename T, typename Free>
  std::string record(T* parsed, Free free) {
    const std::unique_ptr<T, Free> kept(parsed, free);
    return parsed ? value(text_of(parsed)) : "";
  }

  // Those that set a type set it to -1 when they refuse, and return 0.
  template <typename Number>
  std::string number(Number (*parse)(const unsigned char**, const unsigned char*, std::int16_t*)) {
    std::int16_t type = 0;
    const Number parsed = parse(&cursor, end, &type);
    EXPECT_TRUE(type > 0 || (type == -1 && parsed == 0));
    return type < 0 ? "" : value(std::to_string(parsed));
  }

  template <typename Parse>
  std::string sequence(Parse parse, std::int16_t wanted) {
    std::int16_t type = wanted;
    const std::int32_t length = parse(&cursor, end, &type);
    EXPECT_EQ(type, length < 0 ? -1 : wanted);
    return length < 0 ? "" : value(std::to_string(length));
  }

  std::string read(const std::string& parser) {
    std::int16_t type = 0;
    if (parser == "message" || parser == "pdu") {
      const auto* const all = std::exchange(cursor, end);
      const auto size = static_cast<std::int32_t>(bytes.size());
      if (parser == "pdu") return record(ZnParsePdu(all, size), FreePdu);
      return record(ZnParseSnmpMessage(&kV2cOnly, nullptr, nullptr, all, size), ZnFreeSnmpMessage);
    }
    if (parser == "binding") return record(ParseVarBind(&cursor, end), FreeVarBind);
    if (parser == "type") {
      const int tag = ParseType(&cursor, end);
      const auto byte = static_cast<unsigned char>(tag);
      return tag < 0 ? "" : value(text_of(&byte, 1));
    }
    if (parser == "length") {
      const std::int32_t length = ParseLength(&cursor, end);
      return length < 0 ? "" : value(std::to_string(length));
    }
    if (parser == "sequence") return sequence(ParseSequence, SEQUENCE_TYPE);
    if (parser == "implicit/A2") return sequence(ParseImplicitSequence, RESPONSE_PDU);
    if (parser == "int") return number(ParseInt);
    if (parser == "uint") return number(ParseUInt);
    if (parser == "uint64") return record(ParseUInt64(&cursor, end), FreeUInt64);
    if (parser == "octets") {
      OctetString* const string = ParseOctetString(&cursor, end, &type);
      EXPECT_EQ(type == -1, string == nullptr);
      return record(string, FreeOctetString);
    }
    if (parser == "null") {
      const int result = ParseNull(&cursor, end, &type);
      EXPECT_EQ(result, type == -1 ? -1 : 0);
      return result != 0 ? "" : value(std::to_string(type));
    }
    EXPECT_EQ(parser, "oid");
    return record(ParseOID(&cursor, end), FreeOID);
  }

  static std::string value(const std::string& text) { return text.empty() ? "=" : "= " + text; }
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

TEST(Vectors, ReadAndCut) {
  for (const BerVector& vector : read_vectors(TEST_DATA "/ber.txt")) {
    SCOPED_TRACE(vector.name);
    const auto size = static_cast<std::ptrdiff_t>(vector.bytes.size());
    const bool whole = vector.outcome.starts_with("==");
    EXPECT_EQ(seen(vector, size), vector.outcome.substr(whole ? 1 : 0));
    if (vector.parser != "pdu" && vector.parser != "message") {
      Bytes behind = vector.bytes;
      behind.insert(behind.begin(), 0);
      Reader beyond = {behind};  // its cursor is beyond the end, where there would be a value
      beyond.end = beyond.cursor++;
      EXPECT_EQ(beyond.read(vector.parser), "");
      EXPECT_EQ(beyond.cursor, beyond.end + 1);
    }
    // What comes of changed bytes is for the fuzzer to find.
    for (std::ptrdiff_t cut = 0; whole && cut < size; ++cut) {
      const std::string outcome = seen(vector, cut);
      EXPECT_TRUE(!outcome.starts_with("=") || outcome.starts_with("= status 9")) << outcome;
    }
  }
}

}  // namespace
}  // namespace tally
