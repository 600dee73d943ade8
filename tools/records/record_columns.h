// What the records of each collection type hold: one table of columns per type.
//
// Everything that shows, exports, records or counts rows is driven by these tables. The columns of
// a table are those of the record, in order and without a gap, so offsets and the record size
// follow from the widths. Names are those of the MIB objects (RFC 2819, RFC 4502, RFC 2613,
// RFC 3287, RFC 2863); fields that no MIB knows have plain names.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_format.h"

namespace tally {

enum class ColumnKind {
  number,           // u32
  number_or_total,  // u32; all ones marks the row that sums up the others
  length,   // u32, octets that count of the next column; not a column of its own to a reader
  mac,      // 6 octets
  address,  // 16 octets, of which as many count as the column before it says
  name,     // 16 octets of text, likewise
  counter,  // double: a count in the samples, its change per second in the delta file
  percent,  // double, 0 to 100
  speed,    // double, bits per second
  unused,   // double that is always 0; not a column to a reader
};

// What a value counts or measures.
enum class Unit {
  none,    // of a key, and of a column that nobody is shown
  octets,  // people read them as bits per second
  packets,
  events,  // what the heading names: errors, collisions, packets of one size
  percent,
  bits,  // per second
};

// Where the names of a key's values come from; see names/names.h.
enum class NameKind { none, protocol, station, vlan, priority, group };

struct Column {
  const char* name;     // of the MIB object
  const char* heading;  // in people's words, without the unit; see people_text.h
  ColumnKind kind;
  Unit unit;
  const char* metric;  // label of a key, or what a metric's name says of a value
  NameKind names = NameKind::none;
  bool detail =
      false;  // a part of the key that says nothing to people: shown with all columns only
};

// Index of the row of all traffic in a number_or_total column.
inline constexpr std::uint32_t kTotalIndex = 0xffffffff;

inline constexpr std::size_t kMostColumns = 22;

// How a type's rows are sorted and matched: byte by byte, or as numbers of 32 bits.
struct KeyRule {
  std::size_t from;   // offset of the first octet that takes part
  std::size_t words;  // numbers from there; 0: all octets before the first value, as bytes
};

// What the rows of a type are parts of.
enum class TotalRule {
  none,  // they overlap, or add up to nothing: protocols nest, a packet crosses two ports
  sum,   // each packet counts for one row
  row,   // they overlap, but one row of the file sums up the others
};

struct RecordLayout {
  std::span<const Column> columns;
  std::array<std::uint16_t, kMostColumns> offsets;  // of each column
  std::size_t size;                                 // octets of one record
  std::size_t key_columns;                          // the first so many columns are the key
  std::size_t key_size;                             // and the first so many octets
  std::size_t rank;  // number of the column by which the busiest rows are found
  KeyRule key_rule;
  const char* title = "";  // what the rows are
  TotalRule total = TotalRule::none;
};

// record_layout returns the layout of a type's records, or null for an illegal type and for files
// that the type does not have (etherstats keeps its samples in memory).
const RecordLayout* record_layout(std::uint32_t type, FileKind kind = FileKind::delta);

constexpr bool is_visible(ColumnKind kind) {
  return kind != ColumnKind::length && kind != ColumnKind::unused;
}

// is_value tells the numbers of a record from the fields of its key.
constexpr bool is_value(ColumnKind kind) {
  return kind == ColumnKind::counter || kind == ColumnKind::percent || kind == ColumnKind::speed ||
         kind == ColumnKind::unused;
}

// find_column returns the number of a column that a reader can ask for by name (letter case does
// not matter), or nothing.
std::optional<std::size_t> find_column(const RecordLayout& layout, const std::string& name);

// people_columns gives the columns that people are shown, in their order: the key without its
// details, then what is measured: percent, octets, packets, the rest.
std::vector<std::size_t> people_columns(const RecordLayout& layout);

// column_names lists the names that find_column knows, separated by commas.
std::string column_names(const RecordLayout& layout);

}  // namespace tally
