#include "supervisor/ifstats.h"

#include <algorithm>
#include <optional>

#include "agent/rate.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "supervisor/bindings.h"
#include "supervisor/query.h"
#include "supervisor/row_list.h"
#include "supervisor/sampled_kind.h"

namespace tally {
namespace {

RowList<IfStatsRecord, &IfStatsRecord::ifIndex> rows;

// Cleared when the supervisor turns out to have no 64-bit counters; never set again.
bool has_64_bit_counters = true;

// Counters of a record, in its order. In the first kTrafficCounters the counter mode counts, the
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

// The fields are those of a sample; a delta record has the utilisations in place of the first two
// numbers and rates in place of counters.
struct Record {
  std::uint32_t if_index;
  std::uint32_t name_length;
  char name[sizeof InterfaceName::bytes];
  double speed_or_in_utilisation;
  double zero_or_out_utilisation;
  double counters[kCounters];
};
constexpr std::uint32_t kRecordSize = 120;
static_assert(sizeof(Record) == kRecordSize);

constexpr std::uint32_t kSpeedColumn = 5;  // ifEntry

// ifXEntry, all Counter64: octets, unicasts, multicasts and broadcasts in, the same out.
constexpr std::uint32_t kHighCapacityColumns[] = {6, 7, 8, 9, 10, 11, 12, 13};

// ifEntry, in the order of asking, and which counter each is.
struct Column {
  std::uint32_t column;
  Counter counter;
};
constexpr Column kDropColumns[] = {
    {13, kInDiscards}, {14, kInErrors}, {19, kOutDiscards}, {20, kOutErrors}};
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
  std::int32_t oper_status;
};

// An interface without a name ends the table, too. Whether both columns speak of one interface is
// not looked at.
std::optional<WalkRow> get_ifNameAndOperStatus(std::uint32_t after) {
  const PduPtr response = run_query(kWalkQuery, [after](Pdu& request) {
    return add_ifname_varbind(after, request) == 0 && add_ifoperstatus_varbind(after, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  WalkRow row = {};
  row.name = InterfaceName(answer.octets());
  if (!names_a_row(ifName, answer.name())) return WalkRow{};
  row.index = answer.name().back();
  row.oper_status = answer.integer();
  if (!names_a_row(ifOperStatus, answer.name()) || row.name.length == 0) return WalkRow{};
  return row;
}

struct Sample {
  std::uint32_t if_index;  // as the answer names it
  double speed;            // bits per second
  double counters[kCounters];
};

// What came of a question for counters.
enum class Outcome { answered, failed, not_64_bit };

// The type of the high-capacity counters is looked at first: it tells whether there are any.
Outcome counter_width(const Pdu& response) {
  const VarBind* binding = response.var_bind_list;  // the speed
  for (std::size_t i = 0; i < std::size(kHighCapacityColumns); ++i) {
    if (binding) binding = binding->next_var;
    if (!binding) return Outcome::failed;
    if (binding->type != COUNTER_64_TYPE) return Outcome::not_64_bit;
  }
  return Outcome::answered;
}

Outcome finish(const AnswerReader& answer, Sample& sample) {
  if (!answer.ok() || answer.name().empty()) return Outcome::failed;
  sample.if_index = answer.name().back();
  return Outcome::answered;
}

Outcome get_ifTableEntry64(std::uint32_t if_index, Sample& sample) {
  static KeptRequest kept(kCounterQuery);
  const auto bind = [if_index](Pdu& request) {
    if (add_pdu_varbind(ifEntry, kSpeedColumn, if_index, request) != 0) return false;
    for (const std::uint32_t column : kHighCapacityColumns) {
      if (add_pdu_varbind(ifXEntry, column, if_index, request) != 0) return false;
    }
    return std::all_of(std::begin(kDropColumns), std::end(kDropColumns), [&](const Column& drop) {
      return add_pdu_varbind(ifEntry, drop.column, if_index, request) == 0;
    });
  };
  const PduPtr response = kept.run(bind, [if_index](std::size_t) { return if_index; });
  const Outcome width = response ? counter_width(*response) : Outcome::failed;
  if (width != Outcome::answered) return width;
  AnswerReader answer(*response);
  sample.speed = answer.unsigned32();
  for (const bool out : {false, true}) {
    sample.counters[out ? kOutOctets : kInOctets] = static_cast<double>(answer.counter64());
    sample.counters[out ? kOutUnicasts : kInUnicasts] = static_cast<double>(answer.counter64());
    const std::uint64_t multicasts = answer.counter64();
    const std::uint64_t broadcasts = answer.counter64();
    sample.counters[out ? kOutNonUnicasts : kInNonUnicasts] =
        static_cast<double>(multicasts + broadcasts);
  }
  for (const Column& drop : kDropColumns) sample.counters[drop.counter] = answer.unsigned32();
  return finish(answer, sample);
}

Outcome get_ifTableEntry32(std::uint32_t if_index, Sample& sample) {
  static KeptRequest kept(kCounterQuery);
  const auto bind = [if_index](Pdu& request) {
    return add_pdu_varbind(ifEntry, kSpeedColumn, if_index, request) == 0 &&
           std::all_of(std::begin(kColumns32), std::end(kColumns32), [&](const Column& column) {
             return add_pdu_varbind(ifEntry, column.column, if_index, request) == 0;
           });
  };
  const PduPtr response = kept.run(bind, [if_index](std::size_t) { return if_index; });
  if (!response) return Outcome::failed;
  AnswerReader answer(*response);
  sample.speed = answer.unsigned32();
  for (const Column& column : kColumns32) sample.counters[column.counter] = answer.unsigned32();
  return finish(answer, sample);
}

bool take_sample(std::uint32_t if_index, Sample& sample) {
  if (has_64_bit_counters) {
    const Outcome outcome = get_ifTableEntry64(if_index, sample);
    if (outcome != Outcome::not_64_bit) return outcome == Outcome::answered;
  }
  if (get_ifTableEntry32(if_index, sample) != Outcome::answered) return false;
  if (has_64_bit_counters) {
    has_64_bit_counters = false;
    log_debug("Retrieving Counter32 objects instead of Counter64 objects in ifstats");
  }
  return true;
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
  rows.forget_seen();
  walk_rows(get_ifNameAndOperStatus, [](const WalkRow& row) {
    if (is_not_up(row.oper_status)) return;
    if (IfStatsRecord* const record = find_ifstats_row(row.index)) {
      record->flags |= kRowSeen;
    } else {
      (void)rows.insert(rows.end(), {kRowSeen, row.index, row.name},
                        "Unable to add new ifstats collection.");  // has logged
    }
  });
  rows.drop_unseen();
  return rows.size();
}

int poll_ifstats(std::int32_t /*now*/, std::int32_t /*last_poll*/) {
  return poll_sampled_kind(kIfStatsKind);
}

// An answer about another interface than the one asked for is dropped without a word.
int ifstats_upload(RecordCache& cache) {
  for (const IfStatsRecord& row : rows) {
    Sample sample;
    if (!take_sample(row.ifIndex, sample) || sample.if_index != row.ifIndex) continue;
    Record record = {};
    record.if_index = row.ifIndex;
    record.name_length = row.name.length;
    std::memcpy(record.name, row.name.bytes, sizeof record.name);
    record.speed_or_in_utilisation = sample.speed;
    std::memcpy(record.counters, sample.counters, sizeof record.counters);
    if (!filebuf_put(cache, &record, sizeof record)) {
      log_debug("ifstats_upload() error 6.");
      return 0;
    }
  }
  return 1;
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
