// The rows of a view: sorted, and as many as there is room for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "records/annotate.h"
#include "records/record_columns.h"

namespace tally {

struct RowOrder {
  std::optional<std::size_t> column;  // nothing: the order of the file
  bool reversed = false;              // values fall and keys rise, unless reversed
  std::size_t top = 0;                // rows at most; 0: all
};

struct Row {
  const unsigned char* record;
  RowNotes notes;
};

// RowSelection keeps the first rows by an order, without keeping the others: its memory follows
// the number of rows that are kept. Ties stay in the order of the file. A totals row is not
// counted, and comes last.
class RowSelection {
 public:
  RowSelection(const RecordLayout& layout, const RowOrder& order)
      : layout_(layout), order_(order) {}

  void add(const unsigned char* record, RowNotes notes);

  // rows returns what was kept, in order. Called once, after the last row: the records are the
  // selection's own.
  std::vector<Row> rows();

 private:
  struct Entry {
    std::uint64_t place;  // in the file
    std::size_t slot;     // of records_
    RowNotes notes;
  };

  bool precedes(const Entry& left, const Entry& right) const;
  const unsigned char* record(const Entry& entry) const {
    return records_.data() + entry.slot * layout_.size;
  }

  const RecordLayout& layout_;
  const RowOrder order_;
  std::vector<Entry> entries_;  // a heap with the last row on top once there are `top`
  std::vector<Entry> totals_;
  std::vector<unsigned char> records_;
  std::uint64_t next_place_ = 0;
};

}  // namespace tally
