// A switch's supervisor that costs next to nothing, for measuring its clients.
//
// It speaks just enough SNMPv2c (RFC 3416) over UDP. An answer is made when a request is seen for
// the first time, and lies ready as bytes from then on: it then costs one look-up, one head and one
// system call. etherStats row n (RFC 2819, RFC 3273) counts interface n (RFC 2863); in each epoch
// every counter of row n goes up by row_step(n).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tally::bench {

using Bytes = std::span<const std::uint8_t>;
using SubIds = std::vector<std::uint32_t>;

constexpr std::uint32_t row_step(std::uint32_t row) {
  return 60 * (1 + row % 97);
}

// Request is what a message asks for.
struct Request {
  std::int16_t type = 0;
  std::vector<SubIds> names;
};
// read_request takes a message apart. Throws when it cannot.
Request read_request(Bytes message);

// Orders, each a datagram of one byte. kAdvance moves the counters to the next epoch and is
// answered by how many requests have been served since the last one (32 bits, in host byte order).
// kReport is answered by the oldest of these requests, which is then forgotten; by nothing when
// none is left.
inline constexpr std::uint8_t kAdvance = 'a';
inline constexpr std::uint8_t kReport = 'r';

// serve_snmp answers on a bound socket until its process ends.
[[noreturn]] void serve_snmp(int socket, std::uint32_t rows);

}  // namespace tally::bench
