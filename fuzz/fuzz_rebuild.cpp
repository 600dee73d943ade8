// Decode, encode again, decode: the same PDU, and from then on the same bytes.
//
// What the decoder lets pass but the encoder refuses (a first sub-identifier of 3) must be refused,
// and nothing else as long as it fits a packet.
#include <cstring>

#include "property.h"
#include "snmp/bld_pkt.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp_equal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const PduPtr first(ZnParsePdu(data, static_cast<std::int32_t>(size)));
  if (first == nullptr) return 0;
  const bool built = BuildPdu(first.get()) == 0;
  demand(built == (first->packlet != nullptr), "a packlet exactly when built");
  if (!built) {
    // A number that was sent in too few bytes may make the PDU longer than a packet.
    demand(!encodable(*first) || size > static_cast<std::size_t>(zn_pkt_size) / 2,
           "what can be encoded is encoded");
    return 0;
  }
  demand(encodable(*first), "what cannot be decoded alike is not encoded");

  const PduPtr second(ZnParsePdu(first->packlet->octet_ptr, first->packlet->length));
  demand(second != nullptr, "what was encoded can be decoded");
  demand(equal(*first, *second), "the same PDU");
  demand(first->num_varbinds == second->num_varbinds, "the same number of bindings");

  demand(BuildPdu(second.get()) == 0, "it can be encoded again");
  demand(equal(first->packlet, second->packlet), "the same bytes");
  return 0;
}
