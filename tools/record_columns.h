// What the records of each collection type hold: one table of columns per type.
//
// The columns of a table are those of the record, in order and without a gap, so offsets and the
// record size follow from the widths. Names are those of the MIB objects (RFC 2819, RFC 4502,
// RFC 2613, RFC 3287, RFC 2863); fields that no MIB knows have plain names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tally {

enum class ColumnKind {
  number,           // u32
  number_or_total,  // u32; all ones marks the row that sums up the others
  length,   // u32, octets that count of the next column; not a column of its own to a reader
  mac,      // 6 octets
  address,  // 16 octets, of which as many count as the column before it says
  name,     // 16 octets of text, likewise
  rate,     // double, per second
  percent,  // double, 0 to 100
};

struct Column {
  const char* name;
  ColumnKind kind;
};

// Index of the row of all traffic in a number_or_total column.
inline constexpr std::uint32_t kTotalIndex = 0xffffffff;

constexpr std::size_t column_width(ColumnKind kind) {
  switch (kind) {
    case ColumnKind::number:
    case ColumnKind::number_or_total:
    case ColumnKind::length:
      return 4;
    case ColumnKind::mac:
      return 6;
    case ColumnKind::address:
    case ColumnKind::name:
      return 16;
    case ColumnKind::rate:
    case ColumnKind::percent:
      return 8;
  }
  return 0;
}

constexpr bool is_rate(ColumnKind kind) {
  return kind == ColumnKind::rate || kind == ColumnKind::percent;
}

struct RecordLayout {
  std::span<const Column> columns;
  std::size_t size;  // octets of one record
  std::size_t rank;  // number of the column by which the busiest rows are found
};

// record_layout returns the layout of a type's records, or null for an illegal type.
const RecordLayout* record_layout(std::uint32_t type);

// column_offset returns where a column lies in its record.
std::size_t column_offset(const RecordLayout& layout, std::size_t column);

// find_column returns the number of a column that a reader can ask for by name (letter case does
// not matter), or nothing.
std::optional<std::size_t> find_column(const RecordLayout& layout, std::string_view name);

// column_names lists the names that find_column knows, separated by commas.
std::string column_names(const RecordLayout& layout);

}  // namespace tally
