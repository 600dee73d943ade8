#include "agent/smon_types.h"

#include <cstdint>

#include "agent/agent_type.h"
#include "agent/procedures.h"
#include "agent/record_key.h"
#include "agent/single_rows.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

// These two types alone adopt the appliance's own control rows, too.
bool valid_and_ours_or_the_appliances(const ControlEntry& entry) {
  return valid_and_ours(entry) || (entry.row_status == kRowValid && entry.owner == kRmonOwner);
}

// Some texts name other types: kept as the system has them.
struct VlanType {
  static constexpr std::uint32_t kType = kVlan;
  static constexpr std::uint32_t kKeySize = 4;
  static constexpr std::uint32_t kCounters = 4;
  static constexpr AgentTexts kTexts = {
      .delta_null = "pdistcalc_delta2: NULL pointer!",
      .delta_zero_interval = "host_calc_delta() found a 0-length interval.",
      .rate_null = "vlan_calc_rate: NULL pointer!",
      .rate_zero_interval = "vlan_calc_rate() found a 0-length interval.",
      .getnext_failed = "vlan_rpc_getnext: RPC failed",
      .upload_failed = "pdist_upload() error 1.",
      .add_failed = "Unable to add active vlan collection.",
  };

  static constexpr auto kControlProcedure = vlan_control_getnext;
  static ControlEntry control_entry(const SmonControlReply& reply) {
    return {reply.index, reply.owner.view(), reply.row_status};
  }
  static bool adopts(const ControlEntry& entry) { return valid_and_ours_or_the_appliances(entry); }

  static constexpr auto kRowProcedure = vlan_table_get;
  // VLAN ids start at 1, so the first row is the one behind 0.
  static IndexedKey key_after(std::uint32_t index, const VlanRowReply* row) {
    return {static_cast<std::int32_t>(index), row ? row->smonVlanIdStatsId : 0, kNextRow};
  }
  static bool belongs(const RowIterator& rows, const VlanRowReply& row) {
    return static_cast<std::uint32_t>(row.control_index) == rows.control_index;
  }
  static void fill(const VlanRowReply& row, unsigned char* record) {
    put_words(record, static_cast<std::uint32_t>(row.smonVlanIdStatsId));
    put_counters<kKeySize>(record, row.smonVlanIdStatsTotalPkts, row.smonVlanIdStatsTotalOctets,
                           row.smonVlanIdStatsNUcastPkts, row.smonVlanIdStatsNUcastOctets);
  }

  static int compare(const unsigned char* a, const unsigned char* b) {
    return compare_words<1>(a, b);
  }
  static const unsigned char* rpc_getnext(RowIterator& rows) {
    return single_getnext<VlanType>(rows);
  }
};

struct PrioType {
  static constexpr std::uint32_t kType = kPrio;
  static constexpr std::uint32_t kKeySize = 4;
  static constexpr std::uint32_t kCounters = 2;
  static constexpr AgentTexts kTexts = {
      .delta_null = "pdistcalc_delta: NULL pointer!",
      .delta_zero_interval = "host_calc_delta() found a 0-length interval.",
      .rate_null = "prio_calc_rate: NULL pointer!",
      .rate_zero_interval = "prio_calc_rate() found a 0-length interval.",
      .getnext_failed = "prio_rpc_getnext: RPC failed",
      .upload_failed = "prio_upload() error 1.",
      .add_failed = "Unable to add active prio collection.",
  };

  static constexpr auto kControlProcedure = prio_control_getnext;
  static ControlEntry control_entry(const SmonControlReply& reply) {
    return {reply.index, reply.owner.view(), reply.row_status};
  }
  static bool adopts(const ControlEntry& entry) { return valid_and_ours_or_the_appliances(entry); }

  static constexpr auto kRowProcedure = prio_table_get;
  // Priorities start at 0, so the first row is the one behind -1.
  static IndexedKey key_after(std::uint32_t index, const PrioRowReply* row) {
    return {static_cast<std::int32_t>(index), row ? row->smonPrioStatsId : -1, kNextRow};
  }
  static bool belongs(const RowIterator& rows, const PrioRowReply& row) {
    return static_cast<std::uint32_t>(row.control_index) == rows.control_index;
  }
  static void fill(const PrioRowReply& row, unsigned char* record) {
    put_words(record, static_cast<std::uint32_t>(row.smonPrioStatsId));
    put_counters<kKeySize>(record, row.smonPrioStatsPkts, row.smonPrioStatsOctets);
  }

  static int compare(const unsigned char* a, const unsigned char* b) {
    return compare_words<1>(a, b);
  }
  static const unsigned char* rpc_getnext(RowIterator& rows) {
    return single_getnext<PrioType>(rows);
  }
};

}  // namespace

constexpr CollectionOps vlan_ops = collection_ops<VlanType>();
constexpr CollectionOps prio_ops = collection_ops<PrioType>();

}  // namespace tally
