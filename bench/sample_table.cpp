#include "bench/sample_table.h"

#include <algorithm>
#include <stdexcept>

#include "bench/wire_bytes.h"

namespace tally::bench {
namespace {

constexpr TableShape kShapes[] = {
    {"host", 11, 96, 40, 7},
    {"matrix", 18, 88, 64, 3},
    {"pdist", 26, 32, 12, 2},
};

constexpr std::uint32_t kAddressLength = 6;
constexpr std::uint32_t kValidRow = 1;  // RMON EntryStatus valid(1)

// An address travels as a count and one 4-byte unit for each byte.
std::uint8_t* put_address(std::uint8_t* to, std::uint64_t address) {
  to = put_u32(to, kAddressLength);
  for (std::uint32_t i = kAddressLength; i-- > 0;) {
    to = put_u32(to, static_cast<std::uint8_t>(address >> (8 * i)));
  }
  return to;
}

// Reads an address of any length as a number of kAddressLength bytes; nothing when it is empty.
std::optional<std::uint64_t> take_address(WireCursor& cursor) {
  const std::uint32_t count = cursor.u32();
  if (count == 0) return std::nullopt;
  std::uint64_t address = 0;
  for (std::uint32_t i = 0; i < std::max(count, kAddressLength) && cursor.ok(); ++i) {
    const std::uint64_t byte = i < count ? cursor.u32() & 0xFF : 0;
    if (i < kAddressLength) address = address << 8 | byte;
  }
  return address;
}

// The number of hosts at or below an address.
std::uint64_t hosts_up_to(std::uint64_t address) {
  return address < mac_address(0) ? 0 : (address - mac_address(0)) / 4099 + 1;
}

std::uint64_t rows_up_to(TableKind kind, WireCursor& cursor) {
  switch (kind) {
    case TableKind::host: {
      const auto address = take_address(cursor);
      return address ? hosts_up_to(*address) : 0;
    }
    case TableKind::matrix: {
      const auto source = take_address(cursor);
      const auto destination = take_address(cursor);
      if (!source || !destination) return 0;
      const std::uint64_t sources = hosts_up_to(*source);
      if (sources == 0 || mac_address(static_cast<std::uint32_t>(sources - 1)) != *source) {
        return sources * kPeersOfAHost;
      }
      return (sources - 1) * kPeersOfAHost +
             std::min<std::uint64_t>(hosts_up_to(*destination), kPeersOfAHost);
    }
    case TableKind::pdist:
      return cursor.u32();  // the protocol's local index is the row number + 1
  }
  return 0;
}

}  // namespace

const TableShape& table_shape(TableKind kind) {
  return kShapes[static_cast<std::size_t>(kind)];
}

SampleTable::SampleTable(TableKind kind, std::uint32_t control_index, std::uint32_t rows)
    : kind_(kind),
      shape_(table_shape(kind)),
      control_index_(control_index),
      rows_(rows),
      image_(std::size_t{rows} * table_shape(kind).row_size) {
  if (rows > kMostRows) throw std::invalid_argument("too many rows");
  for (std::uint32_t row = 0; row < rows; ++row) write_row(row);
}

void SampleTable::write_row(std::uint32_t row) {
  std::uint8_t* to = image_.data() + std::size_t{row} * shape_.row_size;
  to = put_u32(to, kValidRow);
  switch (kind_) {
    case TableKind::host:
      to = put_address(to, mac_address(row));
      to = put_u32(to, row + 1);  // creation order
      to = put_u32(to, control_index_);
      break;
    case TableKind::matrix:
      to = put_address(to, mac_address(row / kPeersOfAHost));
      to = put_address(to, mac_address(row % kPeersOfAHost));
      to = put_u32(to, control_index_);
      break;
    case TableKind::pdist:
      to = put_u32(to, control_index_);
      to = put_u32(to, row + 1);
      break;
  }
  for (std::uint32_t field = 0; field < shape_.counters; ++field) {
    to = put_u64(to, counter_value(row, field, epoch_));
  }
  if (kind_ == TableKind::pdist) put_u32(to, 1);  // protocol tag
}

void SampleTable::advance() {
  ++epoch_;
  std::uint8_t* counters = image_.data() + shape_.first_counter;
  for (std::uint32_t row = 0; row < rows_; ++row, counters += shape_.row_size) {
    std::uint8_t* counter = counters;
    for (std::uint32_t field = 0; field < shape_.counters; ++field) {
      counter = put_u64(counter, load_u64(counter) + counter_step(row, field));
    }
  }
}

std::span<const std::uint8_t> SampleTable::wire(std::uint32_t first, std::uint32_t count) const {
  const std::uint32_t start = std::min(first, rows_);
  const std::uint32_t length = std::min(count, rows_ - start);
  return std::span(image_).subspan(std::size_t{start} * shape_.row_size,
                                   std::size_t{length} * shape_.row_size);
}

std::optional<std::uint32_t> SampleTable::first_after(
    std::span<const std::uint8_t> argument) const {
  WireCursor cursor(argument);
  const std::uint32_t index = cursor.u32();
  const std::uint64_t rows_before = rows_up_to(kind_, cursor);
  if (!cursor.ok()) return std::nullopt;
  if (index != control_index_) return rows_;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(rows_before, rows_));
}

}  // namespace tally::bench
