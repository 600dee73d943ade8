// The bulk requests and replies: what those of all types share.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace tally {

// WireRows is a counted list of rows. Its buffer only grows, and when the list of a reply of the
// usual size is released the buffer is kept for the next reply with rows of the same type: a poll
// of a million rows allocates as often as a poll of a thousand.
template <class Row>
class WireRows {
 public:
  WireRows() = default;
  WireRows(WireRows&& other) noexcept { *this = std::move(other); }
  WireRows& operator=(WireRows&& other) noexcept {
    release();
    rows_ = std::move(other.rows_);
    count_ = std::exchange(other.count_, 0);
    keep_buffer_ = std::exchange(other.keep_buffer_, false);
    return *this;
  }
  ~WireRows() { release(); }

  std::uint32_t size() const { return count_; }
  std::span<const Row> rows() const { return rows_ ? std::span(rows_->data(), count_) : empty(); }
  const Row& operator[](std::uint32_t position) const { return (*rows_)[position]; }
  const Row& back() const { return (*rows_)[count_ - 1]; }

  // next_row returns where the next row goes and counts it. What stood there before is to be
  // overwritten. Memory grows with the rows that arrive, never with the count that the peer claims.
  Row& next_row() {
    if (!rows_) acquire();
    if (count_ == rows_->size()) rows_->emplace_back();
    return (*rows_)[count_++];
  }

  // keep_buffer tells whether the buffer is kept when the list is released. By default it is not:
  // the memory of an outsize or broken reply goes with it.
  void keep_buffer(bool keep) { keep_buffer_ = keep; }

  // release lets go of the rows.
  void release() {
    if (rows_ && keep_buffer_) delete spare().exchange(rows_.release());
    rows_.reset();
    count_ = 0;
    keep_buffer_ = false;
  }

 private:
  using Buffer = std::vector<Row>;

  // One buffer for each row type waits here between replies. It is trivially destructible on
  // purpose: the poll task may still run while the process ends.
  static std::atomic<Buffer*>& spare() {
    static std::atomic<Buffer*> buffer{nullptr};
    return buffer;
  }

  static std::span<const Row> empty() { return {}; }

  void acquire() {
    rows_.reset(spare().exchange(nullptr));
    if (!rows_) rows_ = std::make_unique<Buffer>();
  }

  std::unique_ptr<Buffer> rows_;
  std::uint32_t count_ = 0;
  bool keep_buffer_ = false;
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
