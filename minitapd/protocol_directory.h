// The protocol directory: which protocols are counted, and under which local index.
//
// As in RMON-2 (RFC 4502, protocolDirTable) a protocol is known by the path that leads to it: TCP
// over IP and TCP over IPv6 are two. Local indexes are part of the agent's interface: they never
// change, and new protocols get new ones.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace minitapd {

using LocalIndex = std::uint8_t;  // 0 = none

// Where a protocol stands in the stack; served as the row's tag.
enum class Layer : std::uint8_t { link = 2, network = 3, transport = 4, application = 7 };

struct Protocol {
  LocalIndex local_index;
  Layer layer;
  std::string_view name;   // without its path
  LocalIndex parent;       // 0 for a link-layer encapsulation
  std::uint16_t selector;  // what the parent's header says: type, DSAP, protocol number or port
};

namespace protocol {
inline constexpr LocalIndex kEther2 = 1;  // a type field
inline constexpr LocalIndex kLlc = 2;     // IEEE 802.2
inline constexpr LocalIndex kSnap = 3;    // 802.2 with a type field behind
inline constexpr LocalIndex kArp = 10;
inline constexpr LocalIndex kIp = 11;
inline constexpr LocalIndex kIpv6 = 12;
inline constexpr LocalIndex kTcpOverIp = 32;
inline constexpr LocalIndex kUdpOverIp = 33;
inline constexpr LocalIndex kTcpOverIpv6 = 51;
inline constexpr LocalIndex kUdpOverIpv6 = 52;
}  // namespace protocol

// All protocols, by local index.
std::span<const Protocol> protocols();

// child_of finds the protocol that `selector` stands for behind `parent`, or null.
const Protocol* child_of(LocalIndex parent, std::uint16_t selector);

const Protocol* find_protocol(LocalIndex local_index);

// path_of names a protocol with its path, as in "ether2.ip.tcp.http".
std::string path_of(const Protocol& protocol);

}  // namespace minitapd
