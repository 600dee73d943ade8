// Tables whose rows have owners: a manager creates a row to have something counted (RFC 2819,
// RFC 2613).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "supervisor/query.h"

namespace tally {

struct ControlTable {
  SubIds entry;
  // What is asked for: the index or not; then owner, status and data source.
  std::span<const std::uint32_t> columns;
  Query query;
};

struct ControlRow {
  std::uint32_t index;        // 0 at the end of the table
  bool is_usable;             // valid and owned by the appliance
  std::uint32_t data_source;  // of a usable row: the interface or VLAN that is counted
};

// next_control_row returns the row that follows an index, or nothing when the query failed (logs).
std::optional<ControlRow> next_control_row(const ControlTable& table, std::uint32_t after);

}  // namespace tally
