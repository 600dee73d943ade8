#include "bench/sample_table.h"

#include <algorithm>
#include <cstring>

#include "bench/wire_bytes.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kProtocol = 7;
constexpr std::uint32_t kGroup = 3;
// A row of nlmatrix is the pair of hosts row / 16 and row % 16, so many rows share a source.
constexpr std::uint32_t kPeersOfAHost = 16;

std::uint64_t counter_start(std::uint32_t row, std::uint32_t field) {
  return std::uint64_t{row} * 1'000'003 + std::uint64_t{field} * 7919 + 1;
}
std::uint64_t counter_step(std::uint32_t row, std::uint32_t field) {
  return 1 + (std::uint64_t{row} * 31 + std::uint64_t{field} * 17) % 997;
}

// Each byte of an address is a unit of 4 bytes on the wire.
std::uint8_t* put_units(std::uint8_t* to, std::uint64_t address, std::uint32_t length) {
  for (std::uint32_t i = length; i-- > 0;) {
    to = put_u32(to, static_cast<std::uint8_t>(address >> (8 * i)));
  }
  return to;
}
std::uint8_t* put_mac(std::uint8_t* to, std::uint32_t host) {
  return put_units(put_u32(to, 6), 0x0200'0000'0000 + std::uint64_t{host} * 4099, 6);
}
std::uint32_t ip_address(std::uint32_t host) {
  return 0x0A00'0000 + host * 37;
}
std::uint8_t* put_ip(std::uint8_t* to, std::uint32_t host) {
  return put_units(put_u32(to, 4), ip_address(host), 4);
}

}  // namespace

SampleTable::SampleTable(TableKind kind, std::uint32_t control_index, std::uint32_t rows)
    : kind_(kind),
      shape_(table_shape(kind)),
      control_index_(control_index),
      rows_(rows),
      image_(std::size_t{rows} * shape_.row_size) {
  for (std::uint32_t row = 0; row < rows; ++row) write_row(row);
}

void SampleTable::write_row(std::uint32_t row) {
  std::uint8_t* to = image_.data() + std::size_t{row} * shape_.row_size;
  switch (kind_) {
    case TableKind::host:  // status valid(1), address, creation order, control index
      put_words(put_mac(put_u32(to, 1), row), {row + 1, control_index_});
      break;
    case TableKind::nlhost:  // status, time mark, address
      put_ip(put_words(to, {1, 0}), row);
      break;
    case TableKind::nlmatrix:
      put_ip(put_ip(put_words(to, {1, 0}), row / kPeersOfAHost), row % kPeersOfAHost);
      break;
    case TableKind::dshost:  // status, control index, time mark, key: an address has 20 bytes
      to = put_words(to, {0, control_index_, 0, kGroup, kProtocol});
      put_units(to, ip_address(row), 4);
      put_u32(to + std::size_t{20} * 4, 4);
      break;
  }
  std::uint8_t* const begin = image_.data() + std::size_t{row} * shape_.row_size;
  std::uint8_t* counter = begin + shape_.first_counter;
  for (std::uint32_t field = 0; field < shape_.counters; ++field) {
    counter = put_u64(counter, counter_start(row, field));
  }
  // Behind the counters of the network tables: creation time, control index, protocol, reserved.
  if (counter != begin + shape_.row_size) put_words(counter, {0, control_index_, kProtocol, 0});
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
  return std::span(image_).subspan(std::size_t{start} * shape_.row_size,
                                   std::size_t{std::min(count, rows_ - start)} * shape_.row_size);
}

// Keys of one table are equally long on the wire, so their bytes have the order of the rows.
std::optional<std::uint32_t> SampleTable::first_after(
    std::span<const std::uint8_t> argument) const {
  if (argument.size() < shape_.asked_at + 4) return std::nullopt;
  const std::uint8_t* const key = argument.data() + shape_.asked_at;
  if (load_u32(argument.data()) != control_index_) return rows_;
  if (load_u32(key) == 0) return 0;
  if (argument.size() < shape_.asked_at + shape_.key_size) return std::nullopt;
  std::uint32_t first = 0;
  for (std::uint32_t end = rows_; first < end;) {
    const std::uint32_t middle = first + (end - first) / 2;
    const std::uint8_t* const row = image_.data() + std::size_t{middle} * shape_.row_size;
    if (std::memcmp(row + shape_.key_at, key, shape_.key_size) > 0) {
      end = middle;
    } else {
      first = middle + 1;
    }
  }
  return first;
}

}  // namespace tally::bench
