// The bulk requests and replies: what those of all types share.
#pragma once

#include <cstdint>
#include <span>
#include <tuple>
#include <vector>

namespace tally {

// WireRows is a counted list of rows. Its buffer outlives the rows, so that a poll of a million
// rows allocates as often as a poll of a thousand.
template <class Row>
class WireRows {
 public:
  std::uint32_t size() const { return count_; }
  std::span<const Row> rows() const { return std::span(rows_).first(count_); }
  const Row& operator[](std::uint32_t position) const { return rows_[position]; }
  const Row& back() const { return rows_[count_ - 1]; }

  // next_row returns where the next row goes and counts it. What stood there before is to be
  // overwritten. Memory grows with the rows that arrive, never with the count that the peer claims.
  Row& next_row() {
    if (count_ == rows_.size()) rows_.emplace_back();
    return rows_[count_++];
  }

  // keep_buffer tells whether the next clear() keeps the buffer, as it does by default. The memory
  // of an outsize or broken reply should go with it.
  void keep_buffer(bool keep) { keep_buffer_ = keep; }

  // clear lets go of the rows.
  void clear() {
    if (!keep_buffer_) std::vector<Row>().swap(rows_);  // an empty list assigned would keep it
    count_ = 0;
    keep_buffer_ = true;
  }

 private:
  std::vector<Row> rows_;
  std::uint32_t count_ = 0;
  bool keep_buffer_ = true;
};

// Batch is a bulk reply: a list of rows and nothing else.
template <class Row>
struct Batch {
  WireRows<Row> rows;

  static constexpr auto members(auto& self) { return std::tie(self.rows); }
};

// What every bulk request carries: the most rows that one reply may hold, and a mode word whose
// meaning is the agent's.
inline constexpr std::int32_t kBatchRows = 100;
inline constexpr std::int32_t kBatchMode = 3;

}  // namespace tally
