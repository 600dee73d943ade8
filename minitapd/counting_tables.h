// The tables that count traffic.
//
// Every frame is parsed once and offered to every table. What a table counts is described in a
// few lines beside its key layout in counting_tables.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "minitapd/packet.h"
#include "minitapd/table_entry.h"
#include "minitapd/tables.h"

namespace minitapd {

// A frame on its way through the tables. Times are the agent's up-time.
struct CountedFrame {
  const Packet& packet;
  bool good;  // RFC 2819: free of errors and of a valid length
  bool sent;  // by the station that captures; all others are received
  std::uint32_t now;
};

class CountingTable {
 public:
  CountingTable() = default;
  CountingTable(const CountingTable&) = delete;
  CountingTable& operator=(const CountingTable&) = delete;
  virtual ~CountingTable() = default;

  virtual void count(const CountedFrame& frame) = 0;

  // rows_after appends up to `limit` rows behind the start key, in the table's order, or from the
  // first when it is null. The caller sets the rows' control index.
  virtual void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) = 0;

  // row_at finds exactly this row.
  virtual std::optional<Row> row_at(const Key& key) = 0;

  [[nodiscard]] virtual TableUse use() const = 0;
};

// make_counting_table makes an empty table that holds at most `max_rows` (2 or more) rows. Those
// of priorities, VLANs, DSCPs and protocols are bounded by what they count.
std::unique_ptr<CountingTable> make_counting_table(Table table, std::size_t max_rows);

}  // namespace minitapd
