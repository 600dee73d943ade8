// What the agent serves: the tables, their rows, and the source that the rows come from.
//
// Eleven tables exist, and they differ only in data: which numbers and addresses make up a row's
// key and how many counters follow. One Row holds a row of any table; TableShape says which of
// its slots a table uses, and what the slots are called in scripts and traces. The wire types of
// tapd.x are filled from it in wire_rows.h.
#pragma once

#include <array>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace minitapd {

enum class Table : std::uint8_t {
  host,
  matrix,
  pdist,
  nlhost,
  nlmatrix,
  vlan,
  prio,
  dsstats,
  dspdist,
  dshost,
  dsmatrix
};
inline constexpr std::size_t kTableCount = 11;
inline constexpr std::size_t kMaxBatch = 100;  // no reply of a bulk procedure is longer

// The key of a row. Unused slots are 0 and empty, so one order serves all tables: the first two
// numbers, the addresses bytewise, the other numbers. Numbers are unsigned 32-bit; those of
// `prio` are signed, because its walk starts after priority -1.
struct Key {
  std::array<std::int64_t, 5> numbers{};
  std::array<std::string, 2> addresses{};  // raw bytes

  std::strong_ordering operator<=>(const Key& other) const;
  bool operator==(const Key& other) const = default;
};

struct Row {
  std::int32_t control_index = 0;
  Key key;
  std::array<std::uint64_t, 7> counters{};
  std::uint32_t detail = 0;  // what the shape's `detail` names
  std::uint32_t time_mark = 0;
  std::int32_t row_status = 1;
};

struct ControlRow {
  std::int32_t index = 0;
  std::string owner;
  std::int32_t status = 1;                // 1 = valid, as RMON's EntryStatus
  std::array<std::uint32_t, 9> fields{};  // the members between index and status, owner left out
};

struct TableShape {
  std::string_view name;
  std::array<std::string_view, 5> numbers;  // names of the key slots, "" = unused
  std::array<std::string_view, 2> addresses;
  std::size_t counters;
  std::string_view detail;   // "" = none
  std::size_t address_size;  // addresses are padded or cut to this size; 0 = any size
  bool has_control;          // has a control table
  bool bulk;                 // read in batches, where an empty key means "from the start"
};

const TableShape& shape_of(Table table);
std::span<const TableShape, kTableCount> table_shapes();  // in the order of Table

// normalize_key brings the numbers into the range and the addresses to the size that the table has
// on the wire.
void normalize_key(Table table, Key& key);

struct SystemInfo {
  std::string descr;
  std::uint32_t up_time = 0;  // hundredths of a second
  std::array<std::string, 4> texts;
  std::int32_t services = 0;
};

// hundredths_since returns an up-time as agents state it; it wraps to 0 after 497 days.
std::uint32_t hundredths_since(std::chrono::steady_clock::time_point start);

struct Totals {
  std::int32_t status = 1;  // 0 when the totals follow
  std::uint64_t pkts = 0;
  std::uint64_t octets = 0;
};

// Where rows come from: counted traffic or a script. Called from the server's thread only.
class TableSource {
 public:
  TableSource() = default;
  TableSource(const TableSource&) = delete;
  TableSource& operator=(const TableSource&) = delete;
  virtual ~TableSource() = default;

  virtual SystemInfo system_info() = 0;

  // control_row returns the control row `index` (next = false) or the one that follows it; null
  // when there is none. The pointer lives until the next call.
  virtual const ControlRow* control_row(Table table, std::int32_t index, bool next) = 0;

  // rows_after appends up to `limit` rows that follow `start` under the control index, and goes on
  // into the control indexes behind it.
  virtual void rows_after(Table table, std::int32_t control_index, const Key& start,
                          std::size_t limit, std::vector<Row>& out) = 0;

  // row_at finds exactly this row.
  virtual std::optional<Row> row_at(Table table, std::int32_t control_index, const Key& key) = 0;

  virtual Totals pdist_totals(std::int32_t control_index) = 0;
};

}  // namespace minitapd
