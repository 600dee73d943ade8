// The tables that traffic is counted into.
//
// Every frame is parsed once and shown to every table; what a table counts is its own business. A
// further table (network layer, VLAN, priority, DSMON) is one more CountingTable in the list of
// LiveSource.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "minitapd/aging_table.h"
#include "minitapd/packet.h"
#include "minitapd/tables.h"

namespace minitapd {

// A frame on its way through the tables. Times are the agent's up-time.
struct CountedFrame {
  const Packet& packet;
  bool good;  // RFC 2819: free of errors and of a valid length
  std::uint32_t now;
};

// What control rows tell of a table.
struct TableUse {
  std::size_t rows = 0;
  std::uint32_t last_delete = 0;  // up-time when a row last had to leave; 0 = never
};

class CountingTable {
 public:
  CountingTable() = default;
  CountingTable(const CountingTable&) = delete;
  CountingTable& operator=(const CountingTable&) = delete;
  virtual ~CountingTable() = default;

  virtual void count(const CountedFrame& frame) = 0;

  // rows_after appends up to `limit` rows behind the start key, in the table's order, or from the
  // first when it is null. The rows' control index is left to the caller.
  virtual void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const = 0;

  [[nodiscard]] virtual TableUse use() const = 0;
};

// RFC 2819 hostTable: stations found as source or destination of good frames. Frames with errors
// count for stations that are known.
class HostTable : public CountingTable {
 public:
  explicit HostTable(std::size_t max_rows) : rows_(max_rows) {}
  void count(const CountedFrame& frame) override;
  void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const override;
  [[nodiscard]] TableUse use() const override { return {rows_.size(), rows_.last_delete()}; }

 private:
  AgingTable<6, 7> rows_;
};

// RFC 2819 matrixSDTable: pairs of stations, source first.
class MatrixTable : public CountingTable {
 public:
  explicit MatrixTable(std::size_t max_rows) : rows_(max_rows) {}
  void count(const CountedFrame& frame) override;
  void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const override;
  [[nodiscard]] TableUse use() const override { return {rows_.size(), rows_.last_delete()}; }

 private:
  AgingTable<12, 3> rows_;
};

// RFC 4502 protocolDistStatsTable: a good frame counts, with all its octets, for every protocol in
// it. The table is as large as the protocol directory, so no row ever leaves.
class PdistTable : public CountingTable {
 public:
  void count(const CountedFrame& frame) override;
  void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) const override;
  [[nodiscard]] TableUse use() const override;
  [[nodiscard]] Totals totals() const;  // of all good frames

 private:
  struct Counters {
    std::uint64_t pkts = 0;
    std::uint64_t octets = 0;
  };
  std::array<Counters, 256> by_index_{};
  Counters total_;
};

}  // namespace minitapd
