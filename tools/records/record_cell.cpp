#include "records/record_cell.h"

namespace tally {

Cell cell_of(const RecordLayout& layout, const unsigned char* record, std::size_t column) {
  const unsigned char* field = record + layout.offsets[column];
  switch (layout.columns[column].kind) {
    case ColumnKind::number:
    case ColumnKind::number_or_total:
    case ColumnKind::length:
      return number_at(field);
    case ColumnKind::counter:
    case ColumnKind::percent:
    case ColumnKind::speed:
    case ColumnKind::unused:
      return value_at(field);
    case ColumnKind::mac:
      return Octets{{field, 6}, 6};
    case ColumnKind::address:
    case ColumnKind::name:
      // The word before says how many count; every layout has one there.
      return Octets{{field, 16}, number_at(field - sizeof(std::uint32_t))};
  }
  return std::uint32_t{0};
}

bool is_total(const RecordLayout& layout, const unsigned char* record) {
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    if (layout.columns[i].kind == ColumnKind::number_or_total) {
      return number_at(record + layout.offsets[i]) == kTotalIndex;
    }
  }
  return false;
}

}  // namespace tally
