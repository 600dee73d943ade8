#include "minitapd/counting_tables.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>

namespace minitapd {

namespace {

// The columns of the tables, in the order of their MIB.
enum HostColumn : std::size_t {
  kInPkts,
  kOutPkts,
  kInOctets,
  kOutOctets,
  kOutErrors,
  kOutBroadcastPkts,
  kOutMulticastPkts
};
enum MatrixColumn : std::size_t { kPkts, kOctets, kErrors };

std::array<std::uint8_t, 12> pair_of(const MacAddress& source, const MacAddress& dest) {
  std::array<std::uint8_t, 12> pair{};
  std::ranges::copy(dest, std::ranges::copy(source, pair.begin()).out);
  return pair;
}

// A start key of another length than the table's is cut or filled with zeros.
void put_address(const std::string& bytes, std::uint8_t* out) {
  const std::size_t size = std::min<std::size_t>(bytes.size(), MacAddress{}.size());
  std::copy_n(bytes.begin(), size, out);
}

std::string text_of(const std::uint8_t* bytes) {
  return {reinterpret_cast<const char*>(bytes), MacAddress{}.size()};
}

}  // namespace

void HostTable::count(const CountedFrame& frame) {
  const Packet& packet = frame.packet;
  if (!frame.good) {
    if (auto* source = rows_.find(packet.source)) {
      source->counters[kOutPkts] += 1;
      source->counters[kOutOctets] += packet.octets;
      source->counters[kOutErrors] += 1;
    }
    return;
  }
  auto& source = rows_.touch(packet.source, frame.now).counters;
  source[kOutPkts] += 1;
  source[kOutOctets] += packet.octets;
  if (packet.is_broadcast()) {
    source[kOutBroadcastPkts] += 1;
  } else if (packet.is_group()) {
    source[kOutMulticastPkts] += 1;
  }
  auto& dest = rows_.touch(packet.dest, frame.now).counters;
  dest[kInPkts] += 1;
  dest[kInOctets] += packet.octets;
}

void HostTable::rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const {
  MacAddress first{};
  if (start != nullptr) put_address(start->addresses[0], first.data());
  rows_.for_each_after(start != nullptr ? &first : nullptr, limit,
                       [&out](const MacAddress& address, const auto& entry) {
                         Row& row = out.emplace_back();
                         row.key.addresses[0] = text_of(address.data());
                         row.counters = entry.counters;
                         row.detail = entry.ordinal;
                       });
}

void MatrixTable::count(const CountedFrame& frame) {
  const Packet& packet = frame.packet;
  const auto pair = pair_of(packet.source, packet.dest);
  auto* row = frame.good ? &rows_.touch(pair, frame.now) : rows_.find(pair);
  if (row == nullptr) return;
  row->counters[kPkts] += 1;
  row->counters[kOctets] += packet.octets;
  if (!frame.good) row->counters[kErrors] += 1;
}

void MatrixTable::rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const {
  std::array<std::uint8_t, 12> first{};
  if (start != nullptr) {
    put_address(start->addresses[0], first.data());
    put_address(start->addresses[1], first.data() + 6);
  }
  rows_.for_each_after(start != nullptr ? &first : nullptr, limit,
                       [&out](const auto& pair, const auto& entry) {
                         Row& row = out.emplace_back();
                         row.key.addresses = {text_of(pair.data()), text_of(pair.data() + 6)};
                         std::ranges::copy(entry.counters, row.counters.begin());
                       });
}

void PdistTable::count(const CountedFrame& frame) {
  if (!frame.good) return;
  const auto add = [&frame](Counters& counters) {
    counters.pkts += 1;
    counters.octets += frame.packet.octets;
  };
  add(total_);
  for (const LocalIndex protocol : frame.packet.stack()) add(by_index_[protocol]);
}

void PdistTable::rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const {
  const std::int64_t behind = start != nullptr ? start->numbers[0] : 0;
  for (const Protocol& protocol : protocols()) {
    const Counters& counters = by_index_[protocol.local_index];
    if (protocol.local_index <= behind || counters.pkts == 0) continue;
    if (limit-- == 0) return;
    Row& row = out.emplace_back();
    row.key.numbers[0] = protocol.local_index;
    row.counters = {counters.pkts, counters.octets};
    row.detail = static_cast<std::uint32_t>(protocol.layer);
  }
}

TableUse PdistTable::use() const {
  const auto seen = std::ranges::count_if(by_index_, [](const auto& c) { return c.pkts != 0; });
  return {static_cast<std::size_t>(seen), 0};
}

Totals PdistTable::totals() const {
  return {.status = 0, .pkts = total_.pkts, .octets = total_.octets};
}

}  // namespace minitapd
