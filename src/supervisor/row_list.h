// The rows that a supervisor kind has found in the supervisor's tables.
//
// A refresh takes the "seen" mark off every row, marks or adds those that the supervisor returns,
// and drops the others. Which order a list has is its kind's affair: it says where a new row goes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "daemon/base/log.h"

namespace tally {

// Bits of a row's `flags`.
inline constexpr std::uint32_t kRowPolled = 1U << 0;  // etherstats only
inline constexpr std::uint32_t kRowSeen = 1U << 1;

// RowList holds rows with a member `flags`; kKey is the member that tells them apart.
template <class Row, std::uint32_t Row::*kKey>
class RowList {
 public:
  auto begin() { return rows_.begin(); }
  auto end() { return rows_.end(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(rows_.size()); }
  void clear() { rows_.clear(); }

  // find returns the row with a key, or null. The pointer lives until the list changes. A refresh
  // looks for rows in about the order that they have here, or in its reverse, so the search goes on
  // around the last find.
  Row* find(std::uint32_t key) {
    if (found_ > 0) --found_;
    for (std::size_t tried = 0; tried < rows_.size(); ++tried) {
      if (found_ >= rows_.size()) found_ = 0;
      Row& row = rows_[found_];
      if (row.*kKey == key) return &row;
      ++found_;
    }
    return nullptr;
  }

  // insert puts a row in front of another, or at the end. Returns it, or null when there is no
  // memory (logs, with the kind's own text behind).
  Row* insert(typename std::vector<Row>::iterator position, const Row& row,
              const char* failure_text) {
    try {
      return &*rows_.insert(position, row);
    } catch (const std::bad_alloc&) {
      log_warning("Tallyd malloc() failure.");
      log_warning("%s", failure_text);
      return nullptr;
    }
  }

  void forget_seen() {
    for (Row& row : rows_) row.flags &= ~kRowSeen;
  }
  void drop_unseen() {
    std::erase_if(rows_, [](const Row& row) { return (row.flags & kRowSeen) == 0; });
  }

 private:
  std::vector<Row> rows_;
  std::size_t found_ = 0;
};

}  // namespace tally
