#include "supervisor/supvlan.h"

#include <algorithm>
#include <optional>

#include "agent/smon_types.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "supervisor/bindings.h"
#include "supervisor/query.h"
#include "supervisor/row_list.h"
#include "supervisor/sampled_kind.h"

namespace tally {
namespace {

constexpr std::int32_t kRowValid = 1;  // smonVlanStatsControlStatus

constexpr std::uint32_t kDataSourceColumn = 2;  // columns of smonVlanStatsControlEntry
constexpr std::uint32_t kOwnerColumn = 4;
constexpr std::uint32_t kStatusColumn = 5;

// Columns of smonVlanIdStatsEntry, all Counter64, in the order of the record: total packets and
// octets, and those that were no unicasts.
constexpr std::uint32_t kCounterColumns[] = {4, 7, 10, 13};

RowList<SupVlanRecord, &SupVlanRecord::control_index> rows;

struct [[gnu::packed]] VlanRecord {
  std::uint32_t vlan_id;
  double counters[std::size(kCounterColumns)];
};
constexpr std::uint32_t kVlanRecordSize = 36;
static_assert(sizeof(VlanRecord) == kVlanRecordSize);

constexpr Query kControlQuery = {
    GET_NEXT_REQUEST_PDU,
    "Error building PDU for smonVlanStatsControlStatus.",
    "Error performing smonVlanStatsControlStatus() SNMP request.",
    "Received unexpected response type %u for smonVlanStatsControlStatus.",
    "smonVlanStatsControlStatus response packet had error %u",
};

constexpr Query kCounterQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for smonVlanIdStatsEntry.",
    "Error performing SNMP request for smonVlanIdStatsEntry.",
    "Received unexpected response type %u for smonVlanIdStatsEntry.",
    "smonVlanIdStatsEntry response packet had error %u",
};

struct ControlRow {
  std::uint32_t index;  // 0 at the end of the table
  bool is_ours;
  std::int32_t status;
  std::uint32_t vlan_id;
};

std::optional<ControlRow> next_control_row(std::uint32_t after) {
  const PduPtr response = run_query(kControlQuery, [after](Pdu& request) {
    return add_pdu_varbind(smonVlanStatsControlEntry, kOwnerColumn, after, request) == 0 &&
           add_pdu_varbind(smonVlanStatsControlEntry, kStatusColumn, after, request) == 0 &&
           add_pdu_varbind(smonVlanStatsControlEntry, kDataSourceColumn, after, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const bool is_ours = answer.octets() == kRmonOwner;
  const auto name = answer.name();
  if (!names_a_row(smonVlanStatsControlEntry, name) || name[name.size() - 2] != kOwnerColumn) {
    return ControlRow{};
  }
  if (!is_ours) return ControlRow{name.back(), false, 0, 0};  // stepped over, whatever else it says
  const ControlRow row{name.back(), true, answer.integer(), answer.last_sub_id()};
  return answer.ok() ? std::optional(row) : std::nullopt;
}

struct VlanSample {
  std::uint32_t control_index;  // as the answer names them
  std::uint32_t vlan_id;
  double counters[std::size(kCounterColumns)];
};

std::optional<VlanSample> vlan_sample(const SupVlanRecord& row) {
  const PduPtr response = run_query(kCounterQuery, [&row](Pdu& request) {
    return add_sysuptime_varbind(request) == 0 &&
           std::all_of(std::begin(kCounterColumns), std::end(kCounterColumns),
                       [&](std::uint32_t column) {
                         return add_vlan_pdu_varbind(smonVlanIdStatsEntry, column,
                                                     row.control_index, row.vlan_id, request) == 0;
                       });
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  answer.skip();  // sysUpTime, which nobody needs
  VlanSample sample;
  for (double& counter : sample.counters) counter = static_cast<double>(answer.counter64());
  const auto name = answer.name();
  if (!answer.ok() || name.size() < 2) return std::nullopt;
  sample.control_index = name[name.size() - 2];
  sample.vlan_id = name.back();
  return sample;
}

void add_row(const ControlRow& row) {
  const auto position = std::find_if(rows.begin(), rows.end(), [&row](const SupVlanRecord& record) {
    return record.vlan_id > row.vlan_id;
  });
  (void)rows.insert(position, {kRowSeen, row.index, row.vlan_id},
                    "Unable to add new vlan collection.");  // has logged
}

int vlan_delta(const unsigned char* prev, const unsigned char* last, unsigned char* out,
               std::uint32_t interval) {
  return vlan_ops.calc_delta(prev, last, out, interval);
}

constexpr SampledKind kSupVlanKind = {
    kSupVlan,
    kind_routines<kVlanRecordSize, vlan_delta>(),
    supvlan_upload,
    "Error 4 polling vlan collection.",
    "Error 7 polling vlan collection.",
    "Error 8 polling collection.",
};

}  // namespace

void reset_supvlan(Schedule& schedule) {
  rows.clear();
  reset_times(schedule, schedule_seconds());
  schedule.flags = 0;
}

std::uint32_t refresh_supvlan_rows(Schedule& /*schedule*/) {
  rows.forget_seen();
  walk_rows(next_control_row, [](const ControlRow& row) {
    if (!row.is_ours || row.status != kRowValid) return;
    if (SupVlanRecord* const record = find_supvlan_row(row.index)) {
      record->flags |= kRowSeen;
    } else {
      add_row(row);
    }
  });
  rows.drop_unseen();
  return rows.size();
}

int poll_supvlan(std::int32_t /*now*/, std::int32_t /*last_poll*/) {
  return poll_sampled_kind(kSupVlanKind);
}

// An answer about another VLAN than the one asked for is dropped without a word.
int supvlan_upload(RecordCache& cache) {
  for (const SupVlanRecord& row : rows) {
    const auto sample = vlan_sample(row);
    if (!sample || sample->control_index != row.control_index || sample->vlan_id != row.vlan_id) {
      continue;
    }
    VlanRecord record;
    record.vlan_id = sample->vlan_id;
    std::memcpy(record.counters, sample->counters, sizeof record.counters);
    if (!filebuf_put(cache, &record, sizeof record)) {
      log_debug("vlan_upload() error 6.");
      return 0;
    }
  }
  return 1;
}

SupVlanRecord* find_supvlan_row(std::uint32_t control_index) {
  return rows.find(control_index);
}

void clear_supvlan_rows() {
  rows.clear();
}

}  // namespace tally
