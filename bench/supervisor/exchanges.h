// What the canned supervisor is asked and answers, byte for byte.
//
// It has rows 1 to N: etherStats row n (RFC 2819, RFC 3273) counts interface n (RFC 2863). Every
// value can be computed from the row, the field and the epoch, so that files can be checked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tally::bench {

// RequestKind is a question of the daemon, in the order in which the canned supervisor counts them.
enum class RequestKind : std::uint8_t {
  row_walk,        // the next etherStats row: index, owner, status, data source
  named_state,     // name, status and last change of an interface
  state,           // status and last change
  ether_counters,  // 28 bindings with the counters of an etherStats row
  if_walk,         // the next interface: name, status
  if_counters,     // 13 bindings with the 64-bit counters of an interface
};
inline constexpr std::size_t kRequestKinds = 6;
inline constexpr const char* kRequestNames[kRequestKinds] = {
    "row_walk", "named_state", "state", "ether_counters", "if_walk", "if_counters"};

// Content is what stands in a column.
enum class Content : std::uint8_t {
  up_time,
  index,
  owner,
  status,
  data_source,
  name,
  oper_status,
  last_change,
  speed,
  counter32,
  overflow,
  counter64,
};

struct Column {
  std::vector<std::uint32_t> object;  // without the instance
  Content content;
  std::uint32_t field;  // which counter it is, 0 for everything else
};

struct RequestShape {
  bool walks;  // GetNext, whose instance is the row before; otherwise Get
  std::vector<Column> columns;
};

const RequestShape& request_shape(RequestKind kind);

// The values of row `row`.
inline constexpr std::uint32_t kSpeed = 1'000'000'000;  // bits per second
inline constexpr std::uint32_t kTicksPerEpoch = 6000;   // of the up-time
std::uint64_t ether_counter(std::uint32_t row, std::uint32_t column, std::uint32_t epoch);
std::uint64_t if_counter(std::uint32_t row, std::uint32_t column, std::uint32_t epoch);
std::string if_name(std::uint32_t row);

// What the supervisor is like at the moment.
struct SupervisorState {
  std::uint32_t rows = 0;
  std::uint32_t epoch = 0;  // how often the counters have advanced
  bool idle = false;        // all interfaces are down
};

// encoded_request and encoded_answer return a PDU without its head: what stands behind the request
// id. `row` is the row that is asked for, 1 to N, or for a walk the one before it, 0 to N.
std::vector<std::uint8_t> encoded_request(RequestKind kind, std::uint32_t row);
std::vector<std::uint8_t> encoded_answer(RequestKind kind, std::uint32_t row,
                                         const SupervisorState& state);

// The canned supervisor takes a datagram of this one byte as an order to move its counters to the
// next epoch, and any other single byte as none; to both it answers with how many requests of each
// kind it has had, and of no kind, as 32-bit big-endian numbers.
inline constexpr std::uint8_t kAdvance = 'a';

}  // namespace tally::bench
