// Any bytes as an OBJECT IDENTIFIER. The first byte is skipped, so that the tag need not be found.
//
// A plain reading of the same content, bit by bit, must come to the same sub-identifiers; and what
// can be encoded decodes to itself.
#include <vector>

#include "property.h"
#include "snmp/bld_pkt.h"
#include "snmp/findlen.h"
#include "snmp/free_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp_equal.h"

namespace tally {
namespace {

// Reads the content of an OID that the decoder has accepted.
std::vector<std::uint32_t> read_plainly(const unsigned char* content, std::size_t size) {
  std::vector<std::uint32_t> sids = {content[0] / 40U, content[0] % 40U};
  std::uint32_t value = 0;
  for (std::size_t i = 1; i < size; ++i) {
    value = value * 128 + content[i] % 128;
    if (content[i] < 128) {
      sids.push_back(value);
      value = 0;
    }
  }
  return sids;
}

void check_round_trip(const OID& oid) {
  std::vector<unsigned char> bytes(static_cast<std::size_t>(FindLenOID(&oid)));
  unsigned char* out = bytes.data();
  const bool written = AddOID(&out, OBJECT_ID_TYPE, &oid) == 0;
  demand(written == encodable(&oid), "encoded exactly when it can be");
  if (!written) return;
  demand(out == bytes.data() + bytes.size(), "the size that was foretold");
  const unsigned char* in = bytes.data();
  const OidPtr again(ParseOID(&in, out));
  demand(again != nullptr && in == out && equal(&oid, again.get()), "the same OID");
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  if (size == 0) return 0;
  std::vector<unsigned char> bytes(data, data + size);
  bytes[0] = static_cast<unsigned char>(OBJECT_ID_TYPE);
  const unsigned char* const end = bytes.data() + bytes.size();
  const unsigned char* cursor = bytes.data() + 1;
  const std::int32_t length = size > 1 ? ParseLength(&cursor, end) : -1;
  const unsigned char* const content = cursor;
  cursor = bytes.data();
  const OidPtr oid(ParseOID(&cursor, end));
  demand(cursor >= bytes.data() && cursor <= end, "the cursor stays inside");
  if (oid == nullptr) return 0;
  demand(length > 0 && cursor == content + length, "the cursor stands behind the content");
  const std::vector<std::uint32_t> plain = read_plainly(content, static_cast<std::size_t>(length));
  demand(std::vector<std::uint32_t>(oid->oid_ptr, oid->oid_ptr + oid->length) == plain,
         "the same sub-identifiers");
  check_round_trip(*oid);
  return 0;
}
