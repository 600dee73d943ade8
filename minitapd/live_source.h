// Counted traffic as a TableSource: frames come in, rows go out.
//
// The control rows of a table are fixed at the start and all show the same counters, those since
// the agent started. Not thread-safe: frames and calls come from the server's loop.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "minitapd/counting_tables.h"
#include "minitapd/tables.h"

namespace minitapd {

// What control rows tell about the source of the frames.
struct CaptureState {
  std::uint32_t interface_index = 0;  // 0 = a file
  std::uint32_t dropped_frames = 0;   // lost before they could be counted
};

class LiveSource : public TableSource {
 public:
  struct Settings {
    std::size_t max_rows = 65536;
    std::uint32_t max_frame_octets = 0;  // 0 = no frame is too long
    std::string descr;
    std::optional<MacAddress> own_address;  // whose frames count as sent
  };
  explicit LiveSource(Settings settings);

  // add_control adds a control row; owner and status as given. An index that the table has is
  // refused with std::invalid_argument.
  void add_control(Table table, std::int32_t index, std::string owner);

  // watch_capture sets what tells control rows about the capture; it is called anew for each row.
  void watch_capture(std::function<CaptureState()> capture) { capture_ = std::move(capture); }

  void set_own_address(const MacAddress& address) { settings_.own_address = address; }

  // count_frame counts a frame of `wire_length` bytes, of which the first `bytes` were captured. A
  // frame without a whole Ethernet header is left out.
  void count_frame(std::span<const std::uint8_t> bytes, std::uint32_t wire_length);

  SystemInfo system_info() override;
  const ControlRow* control_row(Table table, std::int32_t index, bool next) override;
  void rows_after(Table table, std::int32_t control_index, const Key& start, std::size_t limit,
                  std::vector<Row>& out) override;
  std::optional<Row> row_at(Table table, std::int32_t control_index, const Key& key) override;
  Totals pdist_totals(std::int32_t control_index) override;

 private:
  [[nodiscard]] std::vector<ControlRow>& control_of(Table table);
  [[nodiscard]] bool has_control(Table table, std::int32_t index) const;
  void describe_use(Table table, ControlRow& row) const;

  Settings settings_;
  std::array<std::unique_ptr<CountingTable>, kTableCount> tables_;  // by Table
  std::array<std::vector<ControlRow>, kTableCount> control_;        // by Table; each by index
  Totals totals_{.status = 0, .pkts = 0, .octets = 0};              // of all good frames
  std::function<CaptureState()> capture_ = [] { return CaptureState{}; };
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

}  // namespace minitapd
