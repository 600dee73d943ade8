// Reads values out of a record: pure access, no files.
//
// Records lie unaligned; values are copied out, octets are borrowed. The pointer must have the
// layout's size of octets behind it.
#pragma once

#include <cstring>
#include <variant>

#include "records/record_columns.h"

namespace tally {

// Octets is the value of a MAC address, network address or name.
struct Octets {
  std::span<const unsigned char> bytes;  // the whole field, of fixed width
  std::uint32_t length;                  // how many count, as the record says: may be anything
};

using Cell = std::variant<std::uint32_t, double, Octets>;

inline double value_at(const unsigned char* field) {
  double value;
  std::memcpy(&value, field, sizeof value);
  return value;
}

inline std::uint32_t number_at(const unsigned char* field) {
  std::uint32_t number;
  std::memcpy(&number, field, sizeof number);
  return number;
}

// key_of returns the octets of a record's key.
inline std::string_view key_of(const RecordLayout& layout, const unsigned char* record) {
  return {reinterpret_cast<const char*>(record), layout.key_size};
}

// value_of returns a column that is_value.
inline double value_of(const RecordLayout& layout, const unsigned char* record,
                       std::size_t column) {
  return value_at(record + layout.offsets[column]);
}

// cell_of returns the value of any column.
Cell cell_of(const RecordLayout& layout, const unsigned char* record, std::size_t column);

// compare_keys orders two records as the daemon does: negative, 0 or positive.
int compare_keys(const RecordLayout& layout, const unsigned char* left, const unsigned char* right);

// is_total tells whether a record sums up the others and is not one of them.
bool is_total(const RecordLayout& layout, const unsigned char* record);

}  // namespace tally
