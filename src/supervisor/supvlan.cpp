#include "supervisor/supvlan.h"

#include <algorithm>
#include <optional>

#include "agent/records.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/stop.h"
#include "supervisor/control_rows.h"
#include "supervisor/row_list.h"
#include "supervisor/sampled_kind.h"

namespace tally {
namespace {

// Columns of smonVlanIdStatsEntry, all Counter64, in the order of the record: total packets and
// octets, then those that were not unicast.
constexpr std::uint32_t kCounterColumns[] = {4, 7, 10, 13};

RowList<SupVlanRecord, &SupVlanRecord::control_index> rows;

struct [[gnu::packed]] VlanRecord {
  std::uint32_t vlan_id;
  double counters[std::size(kCounterColumns)];
};
constexpr std::uint32_t kVlanRecordSize = 36;
static_assert(sizeof(VlanRecord) == kVlanRecordSize);

constexpr std::uint32_t kControlColumns[] = {4, 5, 2};  // owner, status, data source

constexpr ControlTable kControlTable = {
    smonVlanStatsControlEntry,
    kControlColumns,
    {
        GET_NEXT_REQUEST_PDU,
        "Error building PDU for smonVlanStatsControlStatus.",
        "Error performing smonVlanStatsControlStatus() SNMP request.",
        "Received unexpected response type %u for smonVlanStatsControlStatus.",
        "smonVlanStatsControlStatus response packet had error %u",
    },
};

constexpr Query kCounterQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for smonVlanIdStatsEntry.",
    "Error performing SNMP request for smonVlanIdStatsEntry.",
    "Received unexpected response type %u for smonVlanIdStatsEntry.",
    "smonVlanIdStatsEntry response packet had error %u",
};

// An answer about a different VLAN is dropped silently.
std::optional<VlanRecord> vlan_record(const SupVlanRecord& row) {
  const PduPtr response = run_query(kCounterQuery, [&row](Pdu& request) {
    return add_sysuptime_varbind({}, request) == 0 &&
           std::all_of(
               std::begin(kCounterColumns), std::end(kCounterColumns), [&](std::uint32_t column) {
                 return add_vlan_pdu_varbind({column, row.control_index, row.vlan_id}, request) ==
                        0;
               });
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  answer.skip();  // sysUpTime, which is not used
  VlanRecord record = {row.vlan_id, {}};
  SubIds name;
  for (std::size_t i = 0; i < std::size(kCounterColumns); ++i) {
    name = answer.name();
    record.counters[i] = static_cast<double>(answer.counter64());
  }
  const bool is_about_it =
      name.size() >= 2 && name[name.size() - 2] == row.control_index && name.back() == row.vlan_id;
  return answer.ok() && is_about_it ? std::optional(record) : std::nullopt;
}

void add_row(const ControlRow& row) {
  const auto position = std::find_if(rows.begin(), rows.end(), [&row](const SupVlanRecord& record) {
    return record.vlan_id > row.data_source;
  });
  (void)rows.insert(position, {kRowSeen, row.index, row.data_source},
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
  const auto next = [](std::uint32_t after) { return next_control_row(kControlTable, after); };
  return rows.refresh(next, [](const ControlRow& row) {
    if (!row.is_usable) return;
    if (SupVlanRecord* const record = find_supvlan_row(row.index)) {
      record->flags |= kRowSeen;
    } else {
      add_row(row);
    }
  });
}

int poll_supvlan(std::int32_t /*now*/, std::int32_t /*last_poll*/) {
  return stopping() ? 0 : poll_sampled_kind(kSupVlanKind);
}

int supvlan_upload(RecordCache& cache) {
  return rows.upload(cache, "vlan_upload() error 6.", vlan_record);
}

SupVlanRecord* find_supvlan_row(std::uint32_t control_index) {
  return rows.find(control_index);
}

void clear_supvlan_rows() {
  rows.clear();
}

}  // namespace tally
