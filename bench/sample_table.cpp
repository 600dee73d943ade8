#include "bench/sample_table.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "bench/wire_bytes.h"

namespace tally::bench {
namespace {

constexpr TableShape kShapes[] = {
    {"host", 0, 11, true, 96, 40, 7},     {"matrix", 1, 18, true, 88, 64, 3},
    {"pdist", 2, 26, true, 32, 12, 2},    {"nlhost", 3, 34, true, 84, 28, 5},
    {"nlmatrix", 4, 37, true, 80, 48, 2}, {"dshost", 9, 138, false, 136, 104, 4},
};

constexpr std::uint32_t kMacLength = 6;
constexpr std::uint32_t kIpLength = 4;
constexpr std::uint32_t kVectorLength = 20;  // of the DSMON tables' addresses
constexpr std::uint32_t kValidRow = 1;       // RMON EntryStatus valid(1)
constexpr std::uint32_t kRowFollows = 0;     // status of a reply with one row

std::uint8_t* put_units(std::uint8_t* to, std::uint64_t address, std::uint32_t length) {
  for (std::uint32_t i = length; i-- > 0;) {
    to = put_u32(to, static_cast<std::uint8_t>(address >> (8 * i)));
  }
  return to;
}

// An address travels as a count and one 4-byte unit for each byte.
std::uint8_t* put_mac(std::uint8_t* to, std::uint32_t host) {
  return put_units(put_u32(to, kMacLength), mac_address(host), kMacLength);
}
std::uint8_t* put_ip(std::uint8_t* to, std::uint32_t host) {
  return put_units(put_u32(to, kIpLength), ip_address(host), kIpLength);
}

// Reads `count` units as a number of `length` bytes.
std::uint64_t take_units(WireCursor& cursor, std::uint32_t count, std::uint32_t length) {
  std::uint64_t address = 0;
  for (std::uint32_t i = 0; i < std::max(count, length) && cursor.ok(); ++i) {
    const std::uint64_t byte = i < count ? cursor.u32() & 0xFF : 0;
    if (i < length) address = address << 8 | byte;
  }
  return address;
}

// The addresses of a kind of host: host n has the address base + n * stride.
struct HostNumbers {
  std::uint32_t length;
  std::uint64_t base;
  std::uint64_t stride;

  // The number of hosts at or below an address.
  std::uint64_t up_to(std::uint64_t address) const {
    return address < base ? 0 : (address - base) / stride + 1;
  }
  // Takes an address of any length; nothing when it is empty.
  std::optional<std::uint64_t> take(WireCursor& cursor) const {
    const std::uint32_t count = cursor.u32();
    if (count == 0) return std::nullopt;
    return take_units(cursor, count, length);
  }
};
constexpr HostNumbers kMacHosts{kMacLength, mac_address(0), mac_address(1) - mac_address(0)};
constexpr HostNumbers kIpHosts{kIpLength, ip_address(0), ip_address(1) - ip_address(0)};

std::uint64_t hosts_behind(const HostNumbers& hosts, WireCursor& cursor) {
  const auto address = hosts.take(cursor);
  return address ? hosts.up_to(*address) : 0;
}

std::uint64_t pairs_behind(const HostNumbers& hosts, WireCursor& cursor) {
  const auto source = hosts.take(cursor);
  const auto destination = hosts.take(cursor);
  if (!source || !destination) return 0;
  const std::uint64_t sources = hosts.up_to(*source);
  if (sources == 0 || hosts.base + (sources - 1) * hosts.stride != *source) {
    return sources * kPeersOfAHost;
  }
  return (sources - 1) * kPeersOfAHost +
         std::min<std::uint64_t>(hosts.up_to(*destination), kPeersOfAHost);
}

// How many rows lie at or below the key that stands behind the control index.
std::uint64_t rows_up_to(TableKind kind, WireCursor& cursor) {
  constexpr std::uint32_t kTimeMarkProtocolReserved = 12;
  constexpr std::uint32_t kTimeMarkGroupProtocol = 12;
  switch (kind) {
    case TableKind::host:
      return hosts_behind(kMacHosts, cursor);
    case TableKind::matrix:
      return pairs_behind(kMacHosts, cursor);
    case TableKind::pdist:
      return cursor.u32();  // the protocol's local index is the row number + 1
    case TableKind::nlhost:
      cursor.skip(kTimeMarkProtocolReserved);
      return hosts_behind(kIpHosts, cursor);
    case TableKind::nlmatrix:
      cursor.skip(kTimeMarkProtocolReserved);
      return pairs_behind(kIpHosts, cursor);
    case TableKind::dshost:
      cursor.skip(kTimeMarkGroupProtocol);
      return kIpHosts.up_to(take_units(cursor, kVectorLength, kIpLength));
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
  to = put_u32(to, shape_.batched ? kValidRow : kRowFollows);
  std::array<std::uint32_t, 4> tail{};
  std::size_t tail_words = 0;
  switch (kind_) {
    case TableKind::host:
      to = put_mac(to, row);
      to = put_u32(to, row + 1);  // creation order
      to = put_u32(to, control_index_);
      break;
    case TableKind::matrix:
      to = put_mac(to, row / kPeersOfAHost);
      to = put_mac(to, row % kPeersOfAHost);
      to = put_u32(to, control_index_);
      break;
    case TableKind::pdist:
      to = put_u32(to, control_index_);
      to = put_u32(to, row + 1);
      tail = {1};  // protocol tag
      tail_words = 1;
      break;
    case TableKind::nlhost:
    case TableKind::nlmatrix:
      to = put_u32(to, 0);  // time mark
      if (kind_ == TableKind::nlhost) {
        to = put_ip(to, row);
      } else {
        to = put_ip(to, row / kPeersOfAHost);
        to = put_ip(to, row % kPeersOfAHost);
      }
      tail = {0, control_index_, kProtocol, 0};  // creation time first, a reserved word last
      tail_words = 4;
      break;
    case TableKind::dshost:
      for (const std::uint32_t word : {control_index_, 0U, kGroup, kProtocol}) {
        to = put_u32(to, word);
      }
      to = put_units(to, ip_address(row), kIpLength);
      for (std::uint32_t i = kIpLength; i < kVectorLength; ++i) to = put_u32(to, 0);
      to = put_u32(to, kAddressWord);
      break;
  }
  for (std::uint32_t field = 0; field < shape_.counters; ++field) {
    to = put_u64(to, counter_value(row, field, epoch_));
  }
  for (std::size_t i = 0; i < tail_words; ++i) to = put_u32(to, tail[i]);
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
