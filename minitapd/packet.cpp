#include "minitapd/packet.h"

#include <algorithm>
#include <limits>

namespace minitapd {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint16_t kFirstType = 0x0600;  // smaller values are lengths (IEEE 802.3)
constexpr std::uint16_t kVlanTag = 0x8100;
constexpr std::uint16_t kServiceTag = 0x88a8;
constexpr int kMaxTags = 2;
constexpr int kMaxExtensionHeaders = 8;

// take returns the next `count` bytes and steps over them, or nothing when there are fewer.
Bytes take(Bytes& rest, std::size_t count) {
  if (rest.size() < count) return {};
  const Bytes taken = rest.first(count);
  rest = rest.subspan(count);
  return taken;
}

std::uint16_t word_at(Bytes bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

// enter notes a protocol on the way up. Returns 0 when the directory does not know it.
LocalIndex enter(Packet& packet, LocalIndex parent, std::uint16_t selector) {
  const Protocol* found = child_of(parent, selector);
  if (found == nullptr || packet.protocol_count == packet.protocols.size()) return 0;
  packet.protocols[packet.protocol_count++] = found->local_index;
  return found->local_index;
}

void parse_ports(Packet& packet, LocalIndex transport, Bytes rest) {
  using namespace protocol;
  const Bytes ports = take(rest, 4);
  const bool has_ports = transport == kTcpOverIp || transport == kUdpOverIp ||
                         transport == kTcpOverIpv6 || transport == kUdpOverIpv6;
  if (!has_ports || ports.empty()) return;
  // The lower port is tried first: servers have the well-known ones.
  const auto [low, high] = std::minmax({word_at(ports, 0), word_at(ports, 2)});
  if (enter(packet, transport, low) == 0) enter(packet, transport, high);
}

NetworkHeader addresses(LocalIndex protocol, Bytes source, Bytes dest, unsigned traffic_class) {
  NetworkHeader network{.protocol = protocol,
                        .address_size = static_cast<std::uint8_t>(source.size()),
                        .dscp = static_cast<std::uint8_t>(traffic_class >> 2)};
  std::ranges::copy(source, network.source.begin());
  std::ranges::copy(dest, network.dest.begin());
  return network;
}

// What lies behind the length that a header states is padding. A length of 0 comes from
// hardware that cuts large segments itself.
Bytes bounded(Bytes rest, std::size_t stated) {
  return stated == 0 ? rest : rest.first(std::min(rest.size(), stated));
}

// RFC 791.
void parse_ip(Packet& packet, Bytes rest) {
  const Bytes header = take(rest, 20);
  if (header.empty() || header[0] >> 4 != 4) return;
  const std::size_t header_size = (header[0] & 0x0fU) * std::size_t{4};
  const std::size_t total = word_at(header, 2);
  if (header_size < 20 || (total != 0 && total < header_size)) return;
  packet.network =
      addresses(protocol::kIp, header.subspan(12, 4), header.subspan(16, 4), header[1]);
  const LocalIndex transport = enter(packet, protocol::kIp, header[9]);
  if (take(rest, header_size - 20).size() != header_size - 20) return;
  const bool later_fragment = (word_at(header, 6) & 0x1fffU) != 0;
  if (later_fragment) return;  // it has no transport header
  if (total == header_size) return;
  parse_ports(packet, transport, bounded(rest, total == 0 ? 0 : total - header_size));
}

// RFC 8200. Any number of extension headers stands before the transport.
void parse_ipv6(Packet& packet, Bytes rest) {
  const Bytes header = take(rest, 40);
  if (header.empty() || header[0] >> 4 != 6) return;
  packet.network = addresses(protocol::kIpv6, header.subspan(8, 16), header.subspan(24, 16),
                             (word_at(header, 0) >> 4) & 0xffU);
  rest = bounded(rest, word_at(header, 4));
  std::uint8_t next = header[6];
  bool later_fragment = false;
  for (int i = 0; i < kMaxExtensionHeaders; ++i) {
    const bool options = next == 0 || next == 43 || next == 60;  // hop-by-hop, routing, destination
    const bool fragment = next == 44;
    const bool authentication = next == 51;
    if (!options && !fragment && !authentication) break;
    const Bytes start = take(rest, 8);
    if (start.empty()) return;
    // What follows these 8 octets is counted in units of 8, and in units of 4 in the authentication
    // header, which has 12 octets at least.
    if (authentication && start[1] == 0) return;
    const std::size_t more = options          ? start[1] * std::size_t{8}
                             : authentication ? start[1] * std::size_t{4}
                                              : 0;
    if (take(rest, more).size() != more) return;
    later_fragment = later_fragment || (fragment && (word_at(start, 2) & 0xfff8U) != 0);
    next = start[0];
  }
  const LocalIndex transport = enter(packet, protocol::kIpv6, next);
  if (!later_fragment) parse_ports(packet, transport, rest);
}

// RFC 826, for IPv4 addresses over Ethernet.
void parse_arp(Packet& packet, Bytes rest) {
  constexpr std::array<std::uint8_t, 6> kIpOverEthernet = {0, 1, 8, 0, 6, 4};
  const Bytes message = take(rest, 28);
  if (message.empty() || !std::ranges::equal(message.first(6), kIpOverEthernet)) return;
  packet.network = addresses(protocol::kArp, message.subspan(14, 4), message.subspan(24, 4), 0);
}

// IEEE 802.2: what stands behind a length.
void parse_llc(Packet& packet, Bytes rest) {
  const Bytes header = take(rest, 3);
  if (header.empty()) return;
  if (header[0] != 0xaa || header[1] != 0xaa || header[2] != 3) {
    enter(packet, 0, protocol::kLlc);
    enter(packet, protocol::kLlc, header[0]);
    return;
  }
  enter(packet, 0, protocol::kSnap);
  const Bytes snap = take(rest, 5);
  if (!snap.empty()) enter(packet, protocol::kSnap, word_at(snap, 3));
}

}  // namespace

bool Packet::is_broadcast() const {
  return std::ranges::all_of(dest, [](std::uint8_t byte) { return byte == 0xff; });
}

std::uint32_t frame_octets(std::uint32_t captured_length) {
  constexpr std::uint32_t kMinFrame = 60;
  constexpr std::uint32_t kFcs = 4;
  const std::uint32_t longest = std::numeric_limits<std::uint32_t>::max() - kFcs;
  return std::clamp(captured_length, kMinFrame, longest) + kFcs;
}

std::optional<Packet> parse_frame(Bytes bytes, std::uint32_t wire_length) {
  const Bytes stations = take(bytes, 12);
  if (stations.empty() || bytes.size() < 2) return std::nullopt;
  Packet packet;
  std::ranges::copy(stations.first(6), packet.dest.begin());
  std::ranges::copy(stations.subspan(6), packet.source.begin());
  packet.octets = frame_octets(wire_length);
  std::uint16_t type = word_at(take(bytes, 2), 0);
  for (int i = 0; i < kMaxTags && (type == kVlanTag || type == kServiceTag); ++i) {
    const Bytes tag = take(bytes, 4);
    if (tag.empty()) return packet;  // what it holds may be a type or a length
    const std::uint16_t control = word_at(tag, 0);
    if (!packet.tag) {
      packet.tag = VlanTag{.id = static_cast<std::uint16_t>(control & 0x0fffU),
                           .priority = static_cast<std::uint8_t>(control >> 13)};
    }
    type = word_at(tag, 2);
  }
  if (type < kFirstType) {
    parse_llc(packet, bytes);
    return packet;
  }
  enter(packet, 0, protocol::kEther2);
  const LocalIndex network = enter(packet, protocol::kEther2, type);
  if (network == protocol::kArp) parse_arp(packet, bytes);
  if (network == protocol::kIp) parse_ip(packet, bytes);
  if (network == protocol::kIpv6) parse_ipv6(packet, bytes);
  return packet;
}

}  // namespace minitapd
