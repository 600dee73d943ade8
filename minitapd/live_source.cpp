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

}  // namespace

LiveSource::LiveSource(Settings settings) : settings_(std::move(settings)) {
  tables_[slot(Table::host)] = std::make_unique<HostTable>(settings_.max_rows);
  tables_[slot(Table::matrix)] = std::make_unique<MatrixTable>(settings_.max_rows);
  auto pdist = std::make_unique<PdistTable>();
  pdist_ = pdist.get();
  tables_[slot(Table::pdist)] = std::move(pdist);
}

std::vector<ControlRow>& LiveSource::control_of(Table table) {
  return control_[slot(table)];
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
                           .now = hundredths_since(started_)};
  for (const auto& table : tables_) {
    if (table) table->count(frame);
  }
}

SystemInfo LiveSource::system_info() {
  return {.descr = settings_.descr, .up_time = hundredths_since(started_), .texts = {}};
}

// The members behind the index, as the table's control reply has them.
void LiveSource::describe_use(Table table, ControlRow& row) const {
  const TableUse use = tables_[slot(table)]->use();
  const CaptureState capture = capture_();
  row.fields[0] = capture.interface_index;
  if (table == Table::pdist) {
    row.fields[1] = capture.dropped_frames;
    row.fields[2] = 0;  // made when the agent started
  } else {
    row.fields[1] = static_cast<std::uint32_t>(use.rows);
    row.fields[2] = use.last_delete;
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
    const bool from_start = row->index != control_index || start == Key{};
    const std::size_t first = out.size();
    tables_[slot(table)]->rows_after(from_start ? nullptr : &start, end - first, out);
    for (std::size_t i = first; i < out.size(); ++i) out[i].control_index = row->index;
  }
}

std::optional<Row> LiveSource::row_at(Table /*table*/, std::int32_t /*control_index*/,
                                      const Key& /*key*/) {
  return std::nullopt;  // no counted table is read one row a call
}

Totals LiveSource::pdist_totals(std::int32_t control_index) {
  const auto& rows = control_of(Table::pdist);
  const bool known = std::ranges::find(rows, control_index, &ControlRow::index) != rows.end();
  return known ? pdist_->totals() : Totals{};
}

}  // namespace minitapd
