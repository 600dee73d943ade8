#include "supervisor/ifstats.h"

#include <algorithm>
#include <optional>
#include <span>

#include "agent/rate.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "supervisor/query.h"
#include "supervisor/row_list.h"
#include "supervisor/sampled_kind.h"

namespace tally {
namespace {

RowList<IfStatsRecord, &IfStatsRecord::ifIndex> rows;

// Cleared when the supervisor turns out to have no 64-bit counters; never set again.
bool has_64_bit_counters = true;

// The counters of a record, in order. The counter mode applies to the first kTrafficCounters; the
// others are always 32 bits wide.
enum Counter {
  kInOctets,
  kOutOctets,
  kInUnicasts,
  kOutUnicasts,
  kInNonUnicasts,
  kOutNonUnicasts,
  kInDiscards,
  kOutDiscards,
  kInErrors,
  kOutErrors,
  kCounters,
};
constexpr int kTrafficCounters = kInDiscards;

// A sample. A delta record has the utilisations in place of the first two numbers, and rates in
// place of counters.
struct Record {
  std::uint32_t if_index;
  InterfaceName name;
  double speed_or_in_utilisation;
  double zero_or_out_utilisation;
  double counters[kCounters];
};
constexpr std::uint32_t kRecordSize = 120;
static_assert(sizeof(Record) == kRecordSize);

constexpr std::uint32_t kSpeedColumn = 5;  // ifEntry

// The columns that each mode asks for, in this order, and what they count. 64-bit columns belong to
// ifXEntry, the others to ifEntry. Columns of the same counter are added up.
struct Column {
  std::uint32_t number;
  Counter counter;
  bool is_64_bit = false;
};
constexpr Column kColumns64[] = {{6, kInOctets, true},        {7, kInUnicasts, true},
                                 {8, kInNonUnicasts, true},   {9, kInNonUnicasts, true},
                                 {10, kOutOctets, true},      {11, kOutUnicasts, true},
                                 {12, kOutNonUnicasts, true}, {13, kOutNonUnicasts, true},
                                 {13, kInDiscards},           {14, kInErrors},
                                 {19, kOutDiscards},          {20, kOutErrors}};
constexpr Column kColumns32[] = {{10, kInOctets},    {11, kInUnicasts},     {12, kInNonUnicasts},
                                 {13, kInDiscards},  {14, kInErrors},       {16, kOutOctets},
                                 {17, kOutUnicasts}, {18, kOutNonUnicasts}, {19, kOutDiscards},
                                 {20, kOutErrors}};

constexpr Query kWalkQuery = {
    GET_NEXT_REQUEST_PDU,
    "Error building PDU for get_ifNameAndOperStatus.",
    "Error performing SNMP request for get_ifNameAndOperStatus().",
    "Received unexpected response type %u for get_ifNameAndOperStatus.",
    "ifNameAndOperStatus response packet had error %u",
};

constexpr Query kCounterQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for ifTableEntry.",
    "Error performing SNMP request for ifTableEntry.",
    "Received unexpected response type %u for ifTableEntry.",
    "ifTableEntry response packet had error %u",
};

struct WalkRow {
  std::uint32_t index;  // ifIndex; 0 at the end of the table
  InterfaceName name;
  std::uint32_t oper_status;
};

// An interface without a name ends the walk, too. The indexes of the two columns are not compared.
std::optional<WalkRow> get_ifNameAndOperStatus(std::uint32_t after) {
  constexpr std::uint32_t kNameColumn = 1;    // ifXEntry
  constexpr std::uint32_t kStatusColumn = 8;  // ifEntry
  const PduPtr response = run_query(kWalkQuery, [after](Pdu& request) {
    return add_ifname_varbind({after}, request) == 0 &&
           add_ifoperstatus_varbind({after}, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  if (!names_a_row(ifXEntry, kNameColumn, answer.name())) return WalkRow{};
  WalkRow row = {answer.name().back(), InterfaceName::of(answer.octets()), 0};
  if (!names_a_row(ifEntry, kStatusColumn, answer.name()) || row.name.length == 0) return WalkRow{};
  row.oper_status = answer.word();
  return answer.ok() ? std::optional(row) : std::nullopt;
}

// How a question for counters ended.
enum class Outcome { answered, failed, not_64_bit };

// The types of the 64-bit counters are checked first: they tell whether the supervisor has any.
Outcome counter_width(const Pdu& response, std::span<const Column> columns) {
  const VarBind* binding = response.var_bind_list;  // the speed
  for (const Column& column : columns) {
    if (binding) binding = binding->next_var;
    if (!binding) return Outcome::failed;
    if (column.is_64_bit && binding->type != COUNTER_64_TYPE) return Outcome::not_64_bit;
  }
  return Outcome::answered;
}

// Fills in the numbers of a record, and its if_index as the answer names it.
Outcome get_ifTableEntry(std::span<const Column> columns, std::uint32_t if_index, Record& record) {
  const PduPtr response = run_query(kCounterQuery, [columns, if_index](Pdu& request) {
    return add_pdu_varbind(ifEntry, kSpeedColumn, if_index, request) == 0 &&
           std::all_of(columns.begin(), columns.end(), [&](const Column& column) {
             return add_pdu_varbind(column.is_64_bit ? SubIds(ifXEntry) : SubIds(ifEntry),
                                    column.number, if_index, request) == 0;
           });
  });
  const Outcome width = response ? counter_width(*response, columns) : Outcome::failed;
  if (width != Outcome::answered) return width;
  AnswerReader answer(*response);
  record.speed_or_in_utilisation = answer.word();
  std::uint64_t counts[kCounters] = {};
  for (const Column& column : columns) {
    const SubIds name = answer.name();
    record.if_index = name.empty() ? 0 : name.back();
    counts[column.counter] += column.is_64_bit ? answer.counter64() : answer.word();
  }
  std::copy(std::begin(counts), std::end(counts), record.counters);
  return answer.ok() ? Outcome::answered : Outcome::failed;
}

// An answer about a different interface is dropped silently.
std::optional<Record> interface_record(const IfStatsRecord& row) {
  Record record = {row.ifIndex, row.name, 0, 0, {}};
  Outcome outcome = Outcome::not_64_bit;
  if (has_64_bit_counters) outcome = get_ifTableEntry(kColumns64, row.ifIndex, record);
  if (outcome == Outcome::not_64_bit) {
    outcome = get_ifTableEntry(kColumns32, row.ifIndex, record);
    if (has_64_bit_counters && outcome == Outcome::answered) {
      has_64_bit_counters = false;
      log_debug("Retrieving Counter32 objects instead of Counter64 objects in ifstats");
    }
  }
  const bool is_about_it = outcome == Outcome::answered && record.if_index == row.ifIndex;
  return is_about_it ? std::optional(record) : std::nullopt;
}

// A 32-bit counter that went down has wrapped; it is raised by 2^32 - 1, one too few: kept. If it
// is still below `prev`, that was a 64-bit count, and the rate is negative.
double rate_of_32_bits(double prev, double last, std::uint32_t seconds) {
  constexpr std::uint32_t kRaise = 0xFFFFFFFF;
  const Uint128 before = whole_count(prev);
  const Uint128 now = whole_count(last) + (last < prev ? kRaise : 0);
  return now >= before ? rate_of_change(now - before, seconds)
                       : -rate_of_change(before - now, seconds);
}

// Percent of the speed in bits per second, 0 to 100.
double utilisation(double octet_rate, double speed, long double seconds) {
  if (speed == 0) return 0;
  const long double percent = (seconds * octet_rate * 8 * 100) / (speed * seconds);
  return std::clamp(static_cast<double>(percent), 0.0, 100.0);
}

constexpr SampledKind kIfStatsKind = {
    kIfStats,
    kind_routines<kRecordSize, ifacecalc_delta>(),
    ifstats_upload,
    "Error 4 polling ifstats collection.",
    "Error 7 polling ifstats collection.",
    "Error 8 ifstats collection.",
};

}  // namespace

void reset_ifstats(Schedule& schedule) {
  rows.clear();
  reset_times(schedule, schedule_seconds());
}

std::uint32_t refresh_ifstats_rows(Schedule& /*schedule*/) {
  return rows.refresh(get_ifNameAndOperStatus, [](const WalkRow& row) {
    if (is_not_up(row.oper_status)) return;
    if (IfStatsRecord* const record = find_ifstats_row(row.index)) {
      record->flags |= kRowSeen;
    } else {
      (void)rows.insert(rows.end(), {kRowSeen, row.index, row.name},
                        "Unable to add new ifstats collection.");  // has logged
    }
  });
}

int poll_ifstats(std::int32_t /*now*/, std::int32_t /*last_poll*/) {
  return stopping() ? 0 : poll_sampled_kind(kIfStatsKind);
}

int ifstats_upload(RecordCache& cache) {
  return rows.upload(cache, "ifstats_upload() error 6.", interface_record);
}

int ifacecalc_delta(const unsigned char* prev, const unsigned char* last, unsigned char* out,
                    std::uint32_t interval) {
  if (!prev || !last || !out) {
    log_warning("ifacecalc_delta: NULL pointer!");
    return -1;
  }
  if (interval == 0) {
    log_debug("iface_calc_delta() found a 0-length interval.");
    interval = 1;
  }
  Record before;
  Record now;
  std::memcpy(&before, prev, sizeof before);
  std::memcpy(&now, last, sizeof now);
  Record delta = now;
  bool changed = false;
  for (int i = 0; i < kCounters; ++i) {
    const auto rate = has_64_bit_counters && i < kTrafficCounters ? rate_between : rate_of_32_bits;
    delta.counters[i] = rate(before.counters[i], now.counters[i], interval);
    changed |= delta.counters[i] != 0;
  }
  const double speed = now.speed_or_in_utilisation;
  delta.speed_or_in_utilisation = utilisation(delta.counters[kInOctets], speed, interval);
  delta.zero_or_out_utilisation = utilisation(delta.counters[kOutOctets], speed, interval);
  std::memcpy(out, &delta, sizeof delta);
  return changed ? 1 : 0;
}

IfStatsRecord* find_ifstats_row(std::uint32_t if_index) {
  return rows.find(if_index);
}

void clear_ifstats_rows() {
  rows.clear();
}

}  // namespace tally
