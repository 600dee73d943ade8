// Frames, as the agent's packet parser takes them apart and its tables count them.
//
// Any bytes are a frame or none. What a frame shows is in the protocol directory, layer above
// layer; cut shorter it shows a part of the same. Counted, the tables agree with each other.
#include <algorithm>
#include <memory>
#include <vector>

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

// A cut frame lies in memory of its exact size, so that a sanitizer sees a read behind its end.
void check_cut(Bytes frame, const Packet& whole) {
  for (std::size_t size = 0; size < frame.size(); ++size) {
    const auto cut = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(frame.begin(), size, cut.get());
    const auto packet = parse_frame({cut.get(), size}, 60);
    demand(packet.has_value() == (size >= 14), "an Ethernet header is 14 bytes");
    if (!packet) continue;
    check_packet(*packet);
    demand(packet->protocol_count <= whole.protocol_count &&
               std::ranges::equal(packet->stack(), whole.stack().first(packet->protocol_count)),
           "a cut frame shows a part of the whole one");
    demand(!packet->network || (whole.network && packet->network->source == whole.network->source),
           "a cut frame has no other addresses");
  }
}

// The sum of a column over all rows of a table. The walk begins behind group 0, as that of a client
// that asks for it by itself.
std::uint64_t sum(LiveSource& source, Table table, std::size_t column) {
  std::vector<Row> rows;
  Key first;
  if (table == Table::prio) first.numbers[0] = -1;
  if (const auto row = source.row_at(table, 1, first); row && table == Table::dsstats) {
    rows.push_back(*row);
  }
  source.rows_after(table, 1, first, 1000, rows);
  std::uint64_t total = 0;
  for (const Row& row : rows) total += row.counters[column];
  return total;
}

void check_counts(Bytes frame, const Packet& packet) {
  LiveSource source({.max_rows = 4, .max_frame_octets = 0, .descr = "", .own_address = {}});
  for (std::size_t i = 0; i < kTableCount; ++i) source.add_control(static_cast<Table>(i), 1, "");
  source.count_frame(frame, 60);
  const bool network = packet.network.has_value();
  const bool ip = network && packet.network->is_ip();
  demand(sum(source, Table::host, 0) == 1 && sum(source, Table::host, 1) == 1, "host");
  demand(sum(source, Table::matrix, 0) == 1, "matrix");
  demand(sum(source, Table::pdist, 0) == packet.protocol_count, "pdist");
  demand(sum(source, Table::nlhost, 0) == network && sum(source, Table::nlhost, 1) == network,
         "nlhost");
  demand(sum(source, Table::nlmatrix, 0) == network, "nlmatrix");
  demand(sum(source, Table::vlan, 0) <= packet.tag.has_value(), "vlan");
  demand(sum(source, Table::prio, 0) == 1, "prio");
  demand(sum(source, Table::dsstats, 0) == ip, "dsstats");
  demand(sum(source, Table::dspdist, 0) == (ip ? packet.protocol_count : 0U), "dspdist");
  demand(sum(source, Table::dshost, 0) == ip && sum(source, Table::dshost, 2) == ip, "dshost");
  demand(sum(source, Table::dsmatrix, 0) == ip, "dsmatrix");
}

}  // namespace
}  // namespace minitapd

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace minitapd;
  const Bytes frame(data, std::min<std::size_t>(size, 300));  // more than the headers ever take
  const auto packet = parse_frame(frame, 60);
  demand(packet.has_value() == (frame.size() >= 14), "an Ethernet header is 14 bytes");
  if (!packet) return 0;
  check_packet(*packet);
  check_cut(frame, *packet);
  check_counts(frame, *packet);
  return 0;
}
