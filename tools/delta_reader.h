// Reads the bytes of a delta file: pure parsing, no files, no locks.
//
// The views borrow the bytes, which must outlive them. Whatever the bytes are, a reader never looks
// past them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "files/file_format.h"
#include "record_columns.h"

namespace tally {

// Octets is the value of a MAC address, network address or name.
struct Octets {
  std::span<const unsigned char> bytes;  // the whole field, of fixed width
  std::uint32_t length;                  // how many count, as the record says: may be anything
};

using Cell = std::variant<std::uint32_t, double, Octets>;

// DeltaTable is a delta file that was accepted: its size is 16 + count() x layout->size.
struct DeltaTable {
  FileHeader header;
  const RecordLayout* layout;
  std::span<const unsigned char> rows;

  std::size_t count() const { return rows.size() / layout->size; }

  // cell returns the value of one column (numbered as in the layout) of one row.
  Cell cell(std::size_t row, std::size_t column) const;

  // is_total tells whether a row sums up the others and is not one of them.
  bool is_total(std::size_t row) const;
};

// Why bytes are no delta file of the type asked for, in the order in which it is looked at.
enum class DeltaFault {
  empty,         // no bytes at all
  short_header,  // fewer than 16
  foreign_type,  // the header names another type, or the type asked for is illegal
  foreign_size,  // the records are not a whole number of the type's records
};

using DeltaResult = std::variant<DeltaTable, DeltaFault>;

// parse_delta reads a delta file of a collection of `type`.
DeltaResult parse_delta(std::span<const unsigned char> bytes, std::uint32_t type);

// fault_text says in words what is wrong with bytes that parse_delta refused.
std::string fault_text(DeltaFault fault, std::span<const unsigned char> bytes, std::uint32_t type);

// parse_header reads the 16-byte header in front of at least 16 bytes.
FileHeader parse_header(std::span<const unsigned char> bytes);

}  // namespace tally
