// The tables of the canned agent: rows that anybody can compute from their number.
//
// Keys grow with the row number and counters with the epoch,
//
//   counter(row, field, epoch) = start(row, field) + epoch * step(row, field),   step >= 1,
//
// so a client's files can be judged without asking the agent again. All values stay below 2^53, so
// they are exact as doubles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tally::bench {

enum class TableKind { host, nlhost, nlmatrix, dshost };

// TableShape describes the rows of one kind on the wire. Counters are neighbours, and so are the
// parts of a key, which go back to the agent as they came when the rows behind them are asked for.
struct TableShape {
  const char* name;
  std::uint32_t type;           // collection type code
  std::uint32_t procedure;      // that reads rows
  bool batched;                 // it returns lists of rows, not one row a call
  std::uint32_t row_size;       // bytes, with MAC addresses of 6 bytes, network addresses of 4
  std::uint32_t first_counter;  // where the first counter stands in a row
  std::uint32_t counters;       // 8 bytes each
  std::uint32_t key_at;         // where the key stands in a row
  std::uint32_t key_size;
  std::uint32_t asked_at;  // where it stands in a request; zeros stand there in the first one
  std::uint32_t stored;    // bytes of the key in collection files
};

inline constexpr TableShape kShapes[] = {
    {"host", 0, 11, true, 96, 40, 7, 4, 28, 4, 6},
    {"nlhost", 3, 34, true, 84, 28, 5, 8, 20, 16, 24},
    {"nlmatrix", 4, 37, true, 80, 48, 2, 8, 40, 16, 44},
    {"dshost", 9, 138, false, 136, 104, 4, 12, 92, 8, 28},
};
constexpr const TableShape& table_shape(TableKind kind) {
  return kShapes[static_cast<std::size_t>(kind)];
}

// SampleTable keeps all rows of one control index as they travel, one behind the other.
class SampleTable {
 public:
  SampleTable(TableKind kind, std::uint32_t control_index, std::uint32_t rows);

  const TableShape& shape() const { return shape_; }
  std::uint32_t epoch() const { return epoch_; }

  // advance moves every counter to the next epoch.
  void advance();

  // wire returns the bytes of `count` rows from `first` on, cut at the end of the table.
  std::span<const std::uint8_t> wire(std::uint32_t first, std::uint32_t count) const;

  // first_after returns the number of the first row behind the key of a row request (the whole
  // encoded argument); it is behind the last row when there is none, or when the request names
  // another control index. Nothing when the request is too short.
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
