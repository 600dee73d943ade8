// Frames, as minitapd parses and counts them.
//
// Any bytes are a frame or are refused. The protocols of a frame are in the protocol directory,
// layer by layer; a shorter cut of it shows only some of the same.
#include <algorithm>
#include <memory>

#include "minitapd/live_source.h"
#include "minitapd/packet.h"
#include "property.h"

namespace minitapd {
namespace {

using Bytes = std::span<const std::uint8_t>;

void check_packet(const Packet& packet) {
  LocalIndex parent = 0;
  for (const LocalIndex index : packet.stack()) {
    const Protocol* known = find_protocol(index);
    demand(known != nullptr && known->parent == parent, "each protocol stands above its parent");
    parent = index;
  }
  if (!packet.network) return;
  const NetworkHeader& network = *packet.network;
  demand(packet.protocol_count >= 2 && packet.protocols[1] == network.protocol,
         "addresses belong to the network protocol");
  demand(network.address_size == (network.protocol == protocol::kIpv6 ? 16 : 4), "address size");
  demand(network.dscp < 64, "six bits of DSCP");
}

// One cut, whose place the last byte says: all of them would take a hundred times as long. The cut
// frame lies in memory of its exact size, so that a sanitizer sees a read past its end.
void check_cut(Bytes frame, const Packet& whole) {
  const std::size_t size = frame.back() % frame.size();
  const auto cut = std::make_unique<std::uint8_t[]>(size);
  std::copy_n(frame.begin(), size, cut.get());
  const auto packet = parse_frame({cut.get(), size}, 60);
  demand(packet.has_value() == (size >= 14), "an Ethernet header is 14 bytes");
  if (!packet) return;
  check_packet(*packet);
  demand(packet->protocol_count <= whole.protocol_count &&
             std::ranges::equal(packet->stack(), whole.stack().first(packet->protocol_count)),
         "a cut frame shows a part of the whole one");
  demand(!packet->network || (whole.network && packet->network->source == whole.network->source),
         "a cut frame has no other addresses");
}

// The agent's own tests compare the tables' counts with tshark's. Here the tables, which are large,
// stay from frame to frame: full ones drop rows.
void count(Bytes frame) {
  static LiveSource source({.max_rows = 4, .max_frame_octets = 0, .descr = "", .own_address = {}});
  source.count_frame(frame, 60);
}

}  // namespace
}  // namespace minitapd

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace minitapd;
  const Bytes frame(data, std::min<std::size_t>(size, 300));  // longer than all headers
  const auto packet = parse_frame(frame, 60);
  demand(packet.has_value() == (frame.size() >= 14), "an Ethernet header is 14 bytes");
  if (!packet) return 0;
  check_packet(*packet);
  check_cut(frame, *packet);
  count(frame);
  return 0;
}
