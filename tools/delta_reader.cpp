#include "delta_reader.h"

#include <fmt/format.h>

#include <cstring>

namespace tally {
namespace {

// Records lie unaligned in the file: values are copied out.
template <typename T>
T load(std::span<const unsigned char> field) {
  T value;
  std::memcpy(&value, field.data(), sizeof value);
  return value;
}

}  // namespace

FileHeader parse_header(std::span<const unsigned char> bytes) {
  return load<FileHeader>(bytes);
}

DeltaResult parse_delta(std::span<const unsigned char> bytes, std::uint32_t type) {
  if (bytes.empty()) return DeltaFault::empty;
  if (bytes.size() < sizeof(FileHeader)) return DeltaFault::short_header;
  const RecordLayout* layout = record_layout(type);
  const FileHeader header = parse_header(bytes);
  if (layout == nullptr || header.type != type) return DeltaFault::foreign_type;
  const auto rows = bytes.subspan(sizeof(FileHeader));
  if (rows.size() % layout->size != 0) return DeltaFault::foreign_size;
  return DeltaTable{header, layout, rows};
}

std::string fault_text(DeltaFault fault, std::span<const unsigned char> bytes, std::uint32_t type) {
  switch (fault) {
    case DeltaFault::empty:
      return "the delta file is empty: no poll has filled it";
    case DeltaFault::short_header:
      return fmt::format("{} octets are too short for the header of 16", bytes.size());
    case DeltaFault::foreign_type:
      return fmt::format("the header names collection type {}, not {}", parse_header(bytes).type,
                         type);
    case DeltaFault::foreign_size:
      return fmt::format("{} octets are not 16 + n x {}", bytes.size(), record_layout(type)->size);
  }
  return {};
}

Cell DeltaTable::cell(std::size_t row, std::size_t column) const {
  const ColumnKind kind = layout->columns[column].kind;
  const auto record = rows.subspan(row * layout->size, layout->size);
  const std::size_t offset = column_offset(*layout, column);
  const auto field = record.subspan(offset, column_width(kind));
  switch (kind) {
    case ColumnKind::number:
    case ColumnKind::number_or_total:
    case ColumnKind::length:
      return load<std::uint32_t>(field);
    case ColumnKind::rate:
    case ColumnKind::percent:
      return load<double>(field);
    case ColumnKind::mac:
      return Octets{field, static_cast<std::uint32_t>(field.size())};
    case ColumnKind::address:
    case ColumnKind::name:
      // The column before says how many count; every layout has one there.
      return Octets{field, load<std::uint32_t>(record.subspan(offset - sizeof(std::uint32_t)))};
  }
  return std::uint32_t{0};
}

bool DeltaTable::is_total(std::size_t row) const {
  for (std::size_t i = 0; i < layout->columns.size(); ++i) {
    if (layout->columns[i].kind == ColumnKind::number_or_total) {
      return std::get<std::uint32_t>(cell(row, i)) == kTotalIndex;
    }
  }
  return false;
}

}  // namespace tally
