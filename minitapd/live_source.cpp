#include "minitapd/live_source.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

namespace minitapd {

namespace {

std::size_t slot(Table table) {
  return static_cast<std::size_t>(table);
}

// Rows that are read in batches are read from the start with an empty key, priorities with -1.
bool is_before_first(Table table, const Key& key) {
  return key.numbers[0] < 0 || (shape_of(table).bulk && key == Key{});
}

// The members of a control row between its index and its owner, as the table's control
// reply has them. The others are 0: create times (all rows are made when the agent
// starts), the application layer's members of the network layer's rows, and the members of
// DSMON behind the data source.
enum class Member : std::uint8_t {
  none,
  data_source,
  dropped_frames,
  rows,
  inserts,
  deletes,
  last_delete,
  max_rows
};
using Members = std::array<Member, std::tuple_size_v<decltype(ControlRow::fields)>>;
constexpr Members kRmon = {Member::data_source, Member::rows, Member::last_delete};
constexpr Members kProtocols = {Member::data_source, Member::dropped_frames};
constexpr Members kNetworkLayer = {Member::data_source, Member::dropped_frames, Member::inserts,
                                   Member::deletes, Member::max_rows};
constexpr Members kSource = {Member::data_source};
constexpr std::array<Members, kTableCount> kControlMembers = {  // in the order of Table
    kRmon,   kRmon,   kProtocols, kNetworkLayer, kNetworkLayer, kSource,
    kSource, kSource, kSource,    kSource,       kSource};

}  // namespace

LiveSource::LiveSource(Settings settings) : settings_(std::move(settings)) {
  for (std::size_t i = 0; i < kTableCount; ++i) {
    tables_[i] = make_counting_table(static_cast<Table>(i), settings_.max_rows);
  }
}

std::vector<ControlRow>& LiveSource::control_of(Table table) {
  return control_[slot(table)];
}

bool LiveSource::has_control(Table table, std::int32_t index) const {
  const auto& rows = control_[slot(table)];
  return std::ranges::find(rows, index, &ControlRow::index) != rows.end();
}

void LiveSource::add_control(Table table, std::int32_t index, std::string owner) {
  auto& rows = control_of(table);
  const auto place = std::ranges::lower_bound(rows, index, {}, &ControlRow::index);
  if (place != rows.end() && place->index == index) {
    throw std::invalid_argument("two control rows of " + std::string(shape_of(table).name) +
                                " have the index " + std::to_string(index));
  }
  rows.insert(place, ControlRow{.index = index, .owner = std::move(owner)});
}

void LiveSource::count_frame(std::span<const std::uint8_t> bytes, std::uint32_t wire_length) {
  const auto packet = parse_frame(bytes, wire_length);
  if (!packet) return;
  const std::uint32_t longest = settings_.max_frame_octets;
  const CountedFrame frame{.packet = *packet,
                           .good = longest == 0 || packet->octets <= longest,
                           .sent = packet->source == settings_.own_address,
                           .now = hundredths_since(started_)};
  if (frame.good) {
    totals_.pkts += 1;
    totals_.octets += packet->octets;
  }
  for (const auto& table : tables_) table->count(frame);
}

SystemInfo LiveSource::system_info() {
  return {.descr = settings_.descr, .up_time = hundredths_since(started_), .texts = {}};
}

void LiveSource::describe_use(Table table, ControlRow& row) const {
  const TableUse use = tables_[slot(table)]->use();
  const CaptureState capture = capture_();
  const auto& members = kControlMembers[slot(table)];
  for (std::size_t i = 0; i < members.size(); ++i) {
    switch (members[i]) {
      case Member::none:
        row.fields[i] = 0;
        break;
      case Member::data_source:
        row.fields[i] = capture.interface_index;
        break;
      case Member::dropped_frames:
        row.fields[i] = capture.dropped_frames;
        break;
      case Member::rows:
        row.fields[i] = static_cast<std::uint32_t>(use.rows);
        break;
      case Member::inserts:
        row.fields[i] = use.inserts;
        break;
      case Member::deletes:
        row.fields[i] = use.deletes;
        break;
      case Member::last_delete:
        row.fields[i] = use.last_delete;
        break;
      case Member::max_rows:
        row.fields[i] = static_cast<std::uint32_t>(settings_.max_rows);
        break;
    }
  }
}

const ControlRow* LiveSource::control_row(Table table, std::int32_t index, bool next) {
  auto& rows = control_of(table);
  const auto row = next ? std::ranges::upper_bound(rows, index, {}, &ControlRow::index)
                        : std::ranges::find(rows, index, &ControlRow::index);
  if (row == rows.end()) return nullptr;
  describe_use(table, *row);
  return &*row;
}

void LiveSource::rows_after(Table table, std::int32_t control_index, const Key& start,
                            std::size_t limit, std::vector<Row>& out) {
  const auto& control = control_of(table);
  auto row = std::ranges::lower_bound(control, control_index, {}, &ControlRow::index);
  const std::size_t end = out.size() + limit;
  for (; row != control.end() && out.size() < end; ++row) {
    const bool from_start = row->index != control_index || is_before_first(table, start);
    const std::size_t first = out.size();
    tables_[slot(table)]->rows_after(from_start ? nullptr : &start, end - first, out);
    for (std::size_t i = first; i < out.size(); ++i) out[i].control_index = row->index;
  }
}

std::optional<Row> LiveSource::row_at(Table table, std::int32_t control_index, const Key& key) {
  if (!has_control(table, control_index)) return std::nullopt;
  auto row = tables_[slot(table)]->row_at(key);
  if (row) row->control_index = control_index;
  return row;
}

Totals LiveSource::pdist_totals(std::int32_t control_index) {
  return has_control(Table::pdist, control_index) ? totals_ : Totals{};
}

}  // namespace minitapd
