#include "supervisor/etherstats.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "agent/rate.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"
#include "files/file_lock.h"
#include "files/filebuf.h"
#include "files/finished_file.h"
#include "supervisor/control_rows.h"
#include "supervisor/row_list.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

constexpr std::uint32_t kColumns[] = {1, 20, 21, 2};  // index, owner, status, data source

constexpr ControlTable kRowTable = {
    etherStatsEntry,
    kColumns,
    {
        GET_NEXT_REQUEST_PDU,
        "Error building PDU for etherStatsStatus.",
        "Error performing SNMP request for etherStatsStatus().",
        "Received unexpected response type %u for etherStatsStatus.",
        "etherStatsStatus response packet had error %u",
    },
};

RowList<EtherStatsRecord, &EtherStatsRecord::etherStatsIndex> rows;

// Where an interface's duplex mode is asked for depends on the target id: switches differ.
constexpr std::int32_t kPortTableTargets[] = {1, 3, 4};
constexpr std::int32_t kEtherLikeTarget = 6;

// Percent. etherStatsEntry counts frames without their preamble and the gap between frames, 160
// bits that take up the link as well.
constexpr long double kPercentPerOctet = 8 * 100;
constexpr long double kPercentPerPacket = 160 * 100;
constexpr std::size_t kOctets = 1;  // in kEtherCounterTable
constexpr std::size_t kPackets = 2;

struct [[gnu::packed]] DeltaRecord {
  std::uint32_t if_index;
  std::uint32_t index;
  InterfaceName name;
  double utilisation;
  double rates[kEtherCounters];
};
static_assert(sizeof(DeltaRecord) == 172);

// Failures are numbered variants of one text.
bool fail(int number) {
  log_debug("Error %d creating etherstats delta file.", number);
  return false;
}

void set_baseline(EtherStatsRecord& record, const EtherStatsSample& sample) {
  std::transform(std::begin(sample.counters), std::end(sample.counters), record.baseline,
                 [](std::uint64_t count) { return static_cast<double>(count); });
}

// An interface that was down when it was last seen, and still is, has nothing to count.
void see_again(EtherStatsRecord& record) {
  const auto state = interface_state(record.ifIndex);
  if (!state) return;
  const bool idle =
      is_not_up(state->ifOperStatus) && state->ifLastChange == record.state.ifLastChange;
  record.flags = (idle ? 0 : kRowPolled) | kRowSeen;
  record.state = *state;
}

void add_row(const ControlRow& row, Schedule& schedule) {
  const auto interface = named_interface_state(row.data_source);
  if (!interface) return;
  EtherStatsRecord fresh = {};
  fresh.etherStatsIndex = row.index;
  fresh.ifIndex = row.data_source;
  fresh.name = interface->name;
  fresh.state = interface->state;
  fresh.flags = (is_not_up(interface->state.ifOperStatus) ? 0 : kRowPolled) | kRowSeen;
  EtherStatsRecord* const record =
      rows.insert(rows.begin(), fresh, "Tallyd unable to add active etherstats collection.");
  if (!record) return;
  remove_collection_files(kEtherStats, row.index);
  if (const auto sample = etherstats_sample(record->etherStatsIndex, record->ifIndex)) {
    set_baseline(*record, *sample);
    schedule.last_poll = schedule_seconds();
  } else {
    log_debug("Error getting etherstats baseline");
  }
}

// A counter that went down, because it wrapped or restarted, counts as 0 this time. This is
// deliberate; nothing is corrected.
DeltaRecord delta_record(const EtherStatsRecord& record, const EtherStatsSample& sample,
                         std::int32_t interval) {
  DeltaRecord delta = {};
  delta.if_index = record.ifIndex;
  delta.index = record.etherStatsIndex;
  delta.name = record.name;
  long double change[kEtherCounters];
  for (std::size_t i = 0; i < kEtherCounters; ++i) {
    const auto count = static_cast<double>(sample.counters[i]);
    const double before = record.baseline[i];
    change[i] = count > before ? static_cast<long double>(count) - before : 0;
    if (count > before) {
      delta.rates[i] = rate_between(before, count, static_cast<std::uint32_t>(interval));
    }
  }
  if (sample.speed != 0) {
    const long double used =
        change[kOctets] * kPercentPerOctet + change[kPackets] * kPercentPerPacket;
    const long double room = static_cast<long double>(sample.speed) *
                             etherstats_duplex(record.name.view(), record.ifIndex) * interval;
    delta.utilisation = std::min(static_cast<double>(used / room), 100.0);
  }
  return delta;
}

bool write_records(RecordCache& cache, std::int32_t now, std::int32_t interval) {
  const FileHeader header{interval, 0, time_of_day(now), kEtherStats};
  if (!begin_file(cache, header)) return fail(8);
  for (EtherStatsRecord& record : rows) {
    if ((record.flags & kRowPolled) == 0) continue;
    const auto sample = etherstats_sample(record.etherStatsIndex, record.ifIndex);
    const DeltaRecord delta = sample ? delta_record(record, *sample, interval) : DeltaRecord{};
    if (stopping()) return false;
    if (!sample) {
      fail(9);
      continue;
    }
    if (!filebuf_put(cache, &delta, sizeof delta)) return fail(10);
    set_baseline(record, *sample);
  }
  if (finish_file(cache, header.sample_time)) return true;
  log_debug("Error 8 polling collection.");
  return false;
}

}  // namespace

void reset_etherstats(Schedule& schedule) {
  rows.clear();
  reset_times(schedule, schedule_seconds());
  schedule.flags = 0;
}

std::uint32_t refresh_etherstats_rows(Schedule& schedule) {
  const auto next = [](std::uint32_t after) { return next_control_row(kRowTable, after); };
  return rows.refresh(next, [&schedule](const ControlRow& row) {
    if (!row.is_usable) return;
    if (EtherStatsRecord* const record = find_etherstats_row(row.index)) {
      see_again(*record);
    } else {
      add_row(row, schedule);
    }
  });
}

// The file is written in place. Readers that lock it see the old one, the new one, or one that was
// not finished.
int poll_etherstats(std::int32_t now, std::int32_t last_poll) {
  const std::int32_t interval = seconds_between(last_poll, now);
  if (interval < 1) return 1;
  if (stopping()) return 0;
  const auto path = collection_path(kEtherStats, 0, FileKind::delta);
  const UniqueFd file = open_file(path.text, O_WRONLY | O_CREAT);
  if (!file) return fail(1);
  const FileLock lock(file.get());
  if (!lock.locked()) return fail(2);
  if (ftruncate(file.get(), 0) != 0) return fail(3);
  RecordCache cache;
  filebuf_init(cache, file.get());
  return write_records(cache, now, interval);
}

EtherStatsRecord* find_etherstats_row(std::uint32_t index) {
  return rows.find(index);
}

void clear_etherstats_rows() {
  rows.clear();
}

std::uint32_t etherstats_duplex(std::string_view name, std::uint32_t if_index) {
  constexpr std::uint32_t kPortIsHalf = 1;    // portDuplex
  constexpr std::uint32_t kStatusIsHalf = 2;  // dot3StatsDuplexStatus
  bool half = false;
  if (std::find(std::begin(kPortTableTargets), std::end(kPortTableTargets), target_id) !=
      std::end(kPortTableTargets)) {
    half = port_duplex(name) == kPortIsHalf;
  } else if (target_id == kEtherLikeTarget) {
    half = duplex_status(if_index) == kStatusIsHalf;
  }
  return half ? 1 : 2;
}

}  // namespace tally
