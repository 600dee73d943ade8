#include <cstdint>

#include "agent/agent_type.h"
#include "agent/procedures.h"
#include "agent/record_key.h"
#include "agent/records.h"

namespace tally {
namespace {

// A MAC address is cut at six bytes; a shorter one is filled with zeros.
constexpr std::uint32_t kMacSize = 6;

struct HostType {
  static constexpr std::uint32_t kType = kHost;
  static constexpr std::uint32_t kKeySize = kMacSize;
  static constexpr std::uint32_t kCounters = 7;
  static constexpr AgentTexts kTexts = {
      .delta_null = "host_calc_delta: NULL pointer!",
      .delta_zero_interval = "host_calc_delta() found a 0-length interval.",
      .rate_null = "host_calc_rate: NULL pointer!",
      .rate_zero_interval = "host_calc_rate() found a 0-length interval.",
      .getnext_failed = "host_rpc_getnext: RPC failed",
      .upload_failed = "host_upload() error 1.",
      .add_failed = "Unable to add active host collection.",
  };

  static constexpr auto kControlProcedure = host_control_getnext;
  static constexpr auto kRowProcedure = host_table_get;
  static constexpr auto kControlIndex = &HostRow::hostIndex;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(HostTableKey& key, const HostRow& row) {
    key.hostAddress.assign(row.hostAddress.first(kMacSize));
  }
  static void fill(const HostRow& row, unsigned char* record) {
    put_address<kMacSize>(record, row.hostAddress);
    put_counters<kKeySize>(record, row.hostInPkts, row.hostOutPkts, row.hostInOctets,
                           row.hostOutOctets, row.hostOutErrors, row.hostOutBroadcastPkts,
                           row.hostOutMulticastPkts);
  }
};

struct MatrixType {
  static constexpr std::uint32_t kType = kMatrix;
  static constexpr std::uint32_t kKeySize = 2 * kMacSize;
  static constexpr std::uint32_t kCounters = 3;
  static constexpr AgentTexts kTexts = {
      .delta_null = "matrix_calc_delta: NULL pointer!",
      .delta_zero_interval = "matrix_calc_delta() found a 0-length interval.",
      .rate_null = "matrix_calc_rate: NULL pointer!",
      .rate_zero_interval = "matrix_calc_rate() found a 0-length interval.",
      .getnext_failed = "matrix_rpc_getnext: RPC failed",
      .upload_failed = "matrix_upload() error 1.",
      .add_failed = "Unable to add active matrix collection.",
  };

  static constexpr auto kControlProcedure = matrix_control_getnext;
  static constexpr auto kRowProcedure = matrix_table_get;
  static constexpr auto kControlIndex = &MatrixRow::matrixSDIndex;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(MatrixTableKey& key, const MatrixRow& row) {
    key.matrixSDSourceAddress.assign(row.matrixSDSourceAddress.first(kMacSize));
    key.matrixSDDestAddress.assign(row.matrixSDDestAddress.first(kMacSize));
  }
  static void fill(const MatrixRow& row, unsigned char* record) {
    put_address<kMacSize>(record, row.matrixSDSourceAddress);
    put_address<kMacSize>(record + kMacSize, row.matrixSDDestAddress);
    put_counters<kKeySize>(record, row.matrixSDPkts, row.matrixSDOctets, row.matrixSDErrors);
  }
};

struct PdistType {
  static constexpr std::uint32_t kType = kPdist;
  static constexpr std::uint32_t kKeySize = 8;
  static constexpr std::uint32_t kCounters = 2;
  static constexpr AgentTexts kTexts = {
      .delta_null = "pdistcalc_delta2: NULL pointer!",
      .delta_zero_interval = "pdist_calc_delta() found a 0-length interval.",
      .rate_null = "pdist_calc_rate: NULL pointer!",
      .rate_zero_interval = "pdist_calc_rate() found a 0-length interval.",
      .getnext_failed = "pdist_rpc_getnext: RPC failed",
      .upload_failed = "pdist_upload() error 1.",
      .add_failed = "Unable to add active pdist collection.",
  };

  static constexpr auto kControlProcedure = pdist_control_getnext;
  static constexpr auto kRowProcedure = pdist_table_get;
  static constexpr auto kControlIndex = &PdistRow::protocolDistControlIndex;
  // The tag takes no part: two records with one local index and different tags are one key.
  static constexpr auto compare = compare_words<1, 1>;

  static void go_on(PdistTableKey& key, const PdistRow& row) {
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
  }
  static void fill(const PdistRow& row, unsigned char* record) {
    put_words(record, row.protocol_tag, row.protocolDirLocalIndex);
    put_counters<kKeySize>(record, row.protocolDistStatsPkts, row.protocolDistStatsOctets);
  }

  // Everything that the source has seen: asked for once, after the last protocol.
  static bool closing_row(RowIterator& rows) {
    const auto totals =
        pdist_source_totals_get(*rows.client, {static_cast<std::int32_t>(rows.control_index)});
    if (!totals || totals->status != 0) return false;
    put_words(rows.record, kPdistTotalsTag, kPdistTotalsLocalIndex);
    put_counters<kKeySize>(rows.record, totals->total_pkts, totals->total_octets);
    return true;
  }
};

}  // namespace

constexpr CollectionOps host_ops = collection_ops<HostType>();
constexpr CollectionOps matrix_ops = collection_ops<MatrixType>();
constexpr CollectionOps pdist_ops = collection_ops<PdistType>();

}  // namespace tally
