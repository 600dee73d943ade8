#include <cstdint>

#include "agent/agent_type.h"
#include "agent/procedures.h"
#include "agent/record_key.h"
#include "agent/records.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

// These two types alone adopt the appliance's own control rows, too.
bool valid_and_ours_or_the_appliances(const SmonControlReply& row) {
  return valid_and_ours(row) || (row.row_status == kRowValid && row.owner.view() == kRmonOwner);
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
  static constexpr auto adopts = valid_and_ours_or_the_appliances;

  static constexpr auto kRowProcedure = vlan_table_get;
  static constexpr auto kControlIndex = &VlanRowReply::control_index;
  static constexpr auto compare = compare_words<1>;

  // VLAN ids start at 1, so the first request is for the row after 0.
  static void go_on(IndexedKey& key, const VlanRowReply& row) {
    key.row_key = row.smonVlanIdStatsId;
  }
  static void fill(const VlanRowReply& row, unsigned char* record) {
    put_words(record, row.smonVlanIdStatsId);
    put_counters<kKeySize>(record, row.smonVlanIdStatsTotalPkts, row.smonVlanIdStatsTotalOctets,
                           row.smonVlanIdStatsNUcastPkts, row.smonVlanIdStatsNUcastOctets);
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
  static constexpr auto adopts = valid_and_ours_or_the_appliances;

  static constexpr auto kRowProcedure = prio_table_get;
  static constexpr auto kControlIndex = &PrioRowReply::control_index;
  static constexpr auto compare = compare_words<1>;

  // Priorities start at 0, so the first request is for the row after -1.
  static void start(IndexedKey& key) { key.row_key = -1; }
  static void go_on(IndexedKey& key, const PrioRowReply& row) { key.row_key = row.smonPrioStatsId; }
  static void fill(const PrioRowReply& row, unsigned char* record) {
    put_words(record, row.smonPrioStatsId);
    put_counters<kKeySize>(record, row.smonPrioStatsPkts, row.smonPrioStatsOctets);
  }
};

}  // namespace

constexpr CollectionOps vlan_ops = collection_ops<VlanType>();
constexpr CollectionOps prio_ops = collection_ops<PrioType>();

}  // namespace tally
