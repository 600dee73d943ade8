// The tables of the canned agent: rows that anybody can compute from their number.
//
// Keys grow with the row number and counters with the epoch,
//
//   counter(row, field, epoch) = start(row, field) + epoch * step(row, field),   step >= 1,
//
// so a client's files can be judged without asking the agent a second time. All values stay below
// 2^53, so they are exact as doubles. Integers in keys and counters are big-endian on the wire
// (RFC 4506).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tally::bench {

enum class TableKind { host, matrix, pdist, nlhost, nlmatrix, dshost };
inline constexpr TableKind kTableKinds[] = {TableKind::host,     TableKind::matrix,
                                            TableKind::pdist,    TableKind::nlhost,
                                            TableKind::nlmatrix, TableKind::dshost};

// TableShape describes the rows of one kind on the wire. All counters of a row are neighbours.
struct TableShape {
  const char* name;
  std::uint32_t type;           // collection type code
  std::uint32_t procedure;      // that reads rows
  bool batched;                 // it returns lists of rows, not one row a call
  std::uint32_t row_size;       // bytes, with MAC addresses of 6 bytes, network addresses of 4
  std::uint32_t first_counter;  // offset of the first counter
  std::uint32_t counters;       // 8 bytes each
};

const TableShape& table_shape(TableKind kind);

// Row numbers end here: addresses have room for no more.
inline constexpr std::uint32_t kMostRows = 100'000'000;

// mac_address returns the MAC address, in the low 48 bits, of a host row.
constexpr std::uint64_t mac_address(std::uint32_t row) {
  return 0x0200'0000'0000 + std::uint64_t{row} * 4099;
}

// ip_address returns the IPv4 address of a network host row. In dshost it is the first four of the
// twenty bytes.
constexpr std::uint32_t ip_address(std::uint32_t row) {
  return 0x0A00'0000 + row * 37;
}

// What all rows have in common: the protocol of network hosts and the aggregation group.
inline constexpr std::uint32_t kProtocol = 7;
inline constexpr std::uint32_t kGroup = 3;
inline constexpr std::uint32_t kAddressWord = 4;

// A matrix or nlmatrix row is the pair of hosts row / 16 and row % 16, so many rows share a source.
inline constexpr std::uint32_t kPeersOfAHost = 16;

constexpr std::uint64_t counter_start(std::uint32_t row, std::uint32_t field) {
  return std::uint64_t{row} * 1'000'003 + std::uint64_t{field} * 7919 + 1;
}
constexpr std::uint64_t counter_step(std::uint32_t row, std::uint32_t field) {
  return 1 + (std::uint64_t{row} * 31 + std::uint64_t{field} * 17) % 997;
}
constexpr std::uint64_t counter_value(std::uint32_t row, std::uint32_t field, std::uint32_t epoch) {
  return counter_start(row, field) + epoch * counter_step(row, field);
}

// SampleTable keeps all rows of one control index as they travel, one behind the other.
class SampleTable {
 public:
  SampleTable(TableKind kind, std::uint32_t control_index, std::uint32_t rows);

  const TableShape& shape() const { return shape_; }
  std::uint32_t rows() const { return rows_; }
  std::uint32_t control_index() const { return control_index_; }
  std::uint32_t epoch() const { return epoch_; }

  // advance moves every counter to the next epoch, in place.
  void advance();

  // wire returns the bytes of `count` rows from `first` on, cut at the end of the table.
  std::span<const std::uint8_t> wire(std::uint32_t first, std::uint32_t count) const;

  // first_after returns the number of the first row behind the key of a row request (the whole
  // encoded argument), which is rows() when there is none or when the key names another control
  // index. Nothing when the argument is malformed.
  std::optional<std::uint32_t> first_after(std::span<const std::uint8_t> argument) const;

 private:
  void write_row(std::uint32_t row);

  TableKind kind_;
  TableShape shape_;
  std::uint32_t control_index_;
  std::uint32_t rows_;
  std::uint32_t epoch_ = 0;
  std::vector<std::uint8_t> image_;
};

}  // namespace tally::bench
