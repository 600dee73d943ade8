#include "views/row_selection.h"

#include <algorithm>
#include <cmath>

#include "records/record_cell.h"

namespace tally {
namespace {

// A file that is not the daemon's may hold any number of totals rows; a view of a few shows one.
constexpr std::size_t kMostTotals = 1;

// order_of returns what comes first of two values of a column: negative, 0 or positive. A value
// that is not a number comes after all numbers.
int order_of(const RecordLayout& layout, std::size_t column, bool reversed,
             const unsigned char* left, const unsigned char* right) {
  const std::size_t offset = layout.offsets[column];
  const int sign = reversed ? -1 : 1;
  if (is_value(layout.columns[column].kind)) {
    const double a = value_at(left + offset);
    const double b = value_at(right + offset);
    if (std::isnan(a) || std::isnan(b)) return int{std::isnan(a)} - int{std::isnan(b)};
    return sign * (int{a < b} - int{a > b});
  }
  const Cell cell = cell_of(layout, left, column);
  if (const auto* octets = std::get_if<Octets>(&cell)) {
    const int order = std::memcmp(left + offset, right + offset, octets->bytes.size());
    return sign * (int{order > 0} - int{order < 0});
  }
  const std::uint32_t a = number_at(left + offset);
  const std::uint32_t b = number_at(right + offset);
  return sign * (int{a > b} - int{a < b});
}

}  // namespace

bool RowSelection::precedes(const Entry& left, const Entry& right) const {
  if (order_.column) {
    const int order =
        order_of(layout_, *order_.column, order_.reversed, record(left), record(right));
    if (order != 0) return order < 0;
  }
  return left.place < right.place;
}

void RowSelection::add(const unsigned char* record_given, RowNotes notes) {
  const auto before = [this](const Entry& left, const Entry& right) {
    return precedes(left, right);
  };
  Entry entry{next_place_++, records_.size() / layout_.size, notes};
  records_.insert(records_.end(), record_given, record_given + layout_.size);
  if (is_total(layout_, record_given)) {
    if (order_.top == 0 || totals_.size() < kMostTotals) {
      totals_.push_back(entry);
      return;
    }
  } else if (order_.top == 0 || entries_.size() < order_.top) {
    entries_.push_back(entry);
    if (order_.top != 0) std::push_heap(entries_.begin(), entries_.end(), before);
    return;
  } else if (precedes(entry, entries_.front())) {
    // Takes the place of the last of those kept, whose slot is free then.
    std::pop_heap(entries_.begin(), entries_.end(), before);
    entry.slot = entries_.back().slot;
    std::copy_n(record_given, layout_.size, records_.data() + entry.slot * layout_.size);
    entries_.back() = entry;
    std::push_heap(entries_.begin(), entries_.end(), before);
  }
  records_.resize(records_.size() - layout_.size);
}

std::vector<Row> RowSelection::rows() {
  std::sort(entries_.begin(), entries_.end(),
            [this](const Entry& left, const Entry& right) { return precedes(left, right); });
  std::vector<Row> rows;
  for (const auto* kept : {&entries_, &totals_}) {
    for (const Entry& entry : *kept) rows.push_back({record(entry), entry.notes});
  }
  return rows;
}

}  // namespace tally
