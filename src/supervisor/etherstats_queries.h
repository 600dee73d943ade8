// What etherstats asks the supervisor: RMON Ethernet statistics (RFC 2819) with their high-capacity
// overflows (RFC 3273), and the state of the interfaces that they count.
//
// Every query returns nothing when it failed (logs).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "supervisor/interfaces.h"

namespace tally {

inline constexpr std::size_t kEtherCounters = 17;

// EtherCounter says where a counter comes from.
struct EtherCounter {
  std::uint32_t column;    // of etherStatsEntry: the lower 32 bits
  std::uint32_t overflow;  // of etherStatsHighCapacityEntry: how often they overflowed; 0: none
};

// In the order of the baseline and of the rates in the delta file.
inline constexpr EtherCounter kEtherCounterTable[kEtherCounters] = {
    {3, 0},    // drop events
    {4, 3},    // octets
    {5, 1},    // packets
    {6, 0},    // broadcast packets
    {7, 0},    // multicast packets
    {8, 0},    // CRC and alignment errors
    {9, 0},    // undersize packets
    {10, 0},   // oversize packets
    {11, 0},   // fragments
    {12, 0},   // jabbers
    {13, 0},   // collisions
    {14, 5},   // packets of 64 octets
    {15, 7},   // packets of 65 to 127 octets
    {16, 9},   // packets of 128 to 255 octets
    {17, 11},  // packets of 256 to 511 octets
    {18, 13},  // packets of 512 to 1023 octets
    {19, 15},  // packets of 1024 to 1518 octets
};

struct InterfaceState {
  std::uint32_t ifOperStatus;
  std::uint32_t ifLastChange;  // the supervisor's up-time then, in hundredths of a second
};

struct NamedInterfaceState {
  InterfaceName name;
  InterfaceState state;
};

struct EtherStatsSample {
  std::uint64_t counters[kEtherCounters];
  double speed;  // bits per second
};

std::optional<InterfaceState> interface_state(std::uint32_t if_index);
std::optional<NamedInterfaceState> named_interface_state(std::uint32_t if_index);
std::optional<EtherStatsSample> etherstats_sample(std::uint32_t index, std::uint32_t if_index);

// port_duplex asks the switch maker's port table: 1 half, 2 full, anything else undecided.
// For a name that is not "module/port" it returns nothing, without asking.
std::optional<std::uint32_t> port_duplex(std::string_view interface_name);

// duplex_status asks for dot3StatsDuplexStatus: 1 unknown, 2 half, 3 full.
std::optional<std::uint32_t> duplex_status(std::uint32_t if_index);

}  // namespace tally
