// What an Ethernet frame holds, as far as the counting tables care.
//
// parse_frame is a pure function of the captured bytes. It reads a header only when the whole of
// it is there. Where the bytes end, or a header makes no sense, what was found up to that point
// counts.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "minitapd/protocol_directory.h"

namespace minitapd {

using MacAddress = std::array<std::uint8_t, 6>;

struct VlanTag {
  std::uint16_t id = 0;       // 0 to 4095
  std::uint8_t priority = 0;  // 0 to 7
};

using NetworkAddress = std::array<std::uint8_t, 16>;  // zeros behind a shorter one

struct NetworkHeader {
  LocalIndex protocol = 0;  // ip, ipv6, or arp, whose addresses are those of IP
  std::uint8_t address_size = 0;
  NetworkAddress source{};  // of ARP: the sender
  NetworkAddress dest{};    // of ARP: the target
  std::uint8_t dscp = 0;    // 0 to 63; of IP only

  [[nodiscard]] bool is_ip() const { return protocol != protocol::kArp; }
};

struct Packet {
  MacAddress dest{};
  MacAddress source{};
  std::uint32_t octets = 0;    // on the medium, see frame_octets
  std::optional<VlanTag> tag;  // the outermost
  std::optional<NetworkHeader> network;
  // The protocols on the way from the link layer up, at most one of each layer.
  std::array<LocalIndex, 4> protocols{};
  std::uint8_t protocol_count = 0;

  [[nodiscard]] bool is_group() const { return (dest[0] & 1U) != 0; }
  [[nodiscard]] bool is_broadcast() const;
  [[nodiscard]] std::span<const LocalIndex> stack() const {
    return {protocols.data(), protocol_count};
  }
};

// frame_octets turns the length of a frame as a host sees it into octets as RMON counts them
// (RFC 2819): with the 4 octets of the frame check sequence, which a capture never has, and with
// the padding to the 60 octets that a medium carries at least, which a capture of frames that the
// host itself sent does not have.
std::uint32_t frame_octets(std::uint32_t captured_length);

// parse_frame reads a frame of `wire_length` bytes, of which the first `bytes` were captured. Null
// without a whole Ethernet header.
std::optional<Packet> parse_frame(std::span<const std::uint8_t> bytes, std::uint32_t wire_length);

}  // namespace minitapd
