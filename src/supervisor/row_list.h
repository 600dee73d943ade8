// The rows that a supervisor kind has found in the supervisor's tables.
//
// A refresh takes the "seen" mark off every row, marks or adds those that the supervisor returns,
// and drops the others. Each kind decides the order of its list: it says where a new row goes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "files/filebuf.h"

namespace tally {

// Bits of a row's `flags`.
inline constexpr std::uint32_t kRowPolled = 1U << 0;  // etherstats only
inline constexpr std::uint32_t kRowSeen = 1U << 1;

// A walk takes no more rows than this from a table, so that no supervisor, however broken, keeps
// the main thread for ever.
inline constexpr std::uint32_t kMostRows = 65536;

// walk_rows asks for one row after the other, from index 0 on, and calls `visit` with each. `next`
// takes an index and returns the row that follows it: an optional with a member `index`, nothing
// when the query failed. That ends the walk, and so does a row whose index is not greater than the
// last (0 means that there is none), or one row beyond kMostRows (logs).
template <class Next, class Visit>
void walk_rows(Next next, Visit visit) {
  std::uint32_t index = 0;
  for (std::uint32_t rows = 0;; ++rows) {
    const auto row = next(index);
    if (!row || row->index <= index) return;
    if (rows == kMostRows) break;
    index = row->index;
    visit(*row);
  }
  log_warning("A table of the supervisor has more than %u rows, ignoring the rest.", kMostRows);
}

// RowList holds rows with a member `flags`; kKey is the member that tells them apart.
template <class Row, std::uint32_t Row::*kKey>
class RowList {
 public:
  auto begin() { return rows_.begin(); }
  auto end() { return rows_.end(); }
  void clear() { rows_.clear(); }

  // find returns the row with a key, or null. The pointer lives until the list changes. A refresh
  // looks for rows in about the same order as they have here, or in reverse, so the search starts
  // next to the last find.
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

  // insert puts a row in front of another, or at the end. Returns it, or null when memory
  // runs out (logs, followed by the kind's own text).
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

  // refresh walks the supervisor's table; `visit` marks or inserts each row. Returns how many rows
  // are left.
  template <class Next, class Visit>
  std::uint32_t refresh(Next next, Visit visit) {
    for (Row& row : rows_) row.flags &= ~kRowSeen;
    walk_rows(next, visit);
    std::erase_if(rows_, [](const Row& row) { return (row.flags & kRowSeen) == 0; });
    return static_cast<std::uint32_t>(rows_.size());
  }

  // upload puts a record for each row. `record_of` returns it as an optional; nothing leaves the
  // row out. 1, or 0 when a put failed (logs) or the process is about to end.
  template <class RecordOf>
  int upload(RecordCache& cache, const char* failure_text, RecordOf record_of) const {
    for (const Row& row : rows_) {
      const auto record = record_of(row);
      if (stopping()) return 0;
      if (record && !filebuf_put(cache, &*record, sizeof *record)) {
        log_debug("%s", failure_text);
        return 0;
      }
    }
    return 1;
  }

 private:
  std::vector<Row> rows_;
  std::size_t found_ = 0;
};

}  // namespace tally
