#include <cstdint>
#include <cstring>

#include "agent/agent_type.h"
#include "agent/procedures.h"
#include "agent/record_key.h"
#include "agent/records.h"

namespace tally {
namespace {

constexpr std::uint32_t kAddressSize = 16;

void put_address(unsigned char* field, const ByteVector20& address) {
  std::memcpy(field, address.data(), kAddressSize);
}

struct DsStatsType {
  static constexpr std::uint32_t kType = kDsStats;
  static constexpr std::uint32_t kKeySize = 4;
  static constexpr std::uint32_t kCounters = 4;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlhost_calc_delta: NULL pointer!",
      .delta_zero_interval = "dsstats_calc_delta() found a 0-length interval.",
      .rate_null = "dsstats_calc_rate: NULL pointer!",
      .rate_zero_interval = "dsstats_calc_rate() found a 0-length interval.",
      .getnext_failed = "dsstats_rpc_getnext: RPC failed",
      .upload_failed = "dsstats_upload() error 1.",
      .add_failed = "Unable to add active dsstats collection.",
  };

  static constexpr auto kControlProcedure = dsstats_control_getnext;
  // Whatever the row status says: kept as the system has it.
  static bool adopts(const DsStatsControlReply& row) { return row.owner.view() == kOwner; }

  static constexpr auto kRowProcedure = dsstats_table_get;
  static constexpr auto kControlIndex = &DsStatsRowReply::dsmonStatsControlIndex;
  static constexpr auto compare = compare_words<1>;

  static void go_on(IndexedKey& key, const DsStatsRowReply& row) {
    key.row_key = static_cast<std::int32_t>(row.dsmonAggGroupIndex);
  }
  // Groups may start at 0, which no request for a following row could reach.
  static void exact_first(IndexedKey& key) { key.request = kExactRow; }
  static void fill(const DsStatsRowReply& row, unsigned char* record) {
    put_words(record, row.dsmonAggGroupIndex);
    put_counters<kKeySize>(record, row.in_pkts, row.in_octets, row.out_pkts, row.out_octets);
  }
};

struct DsPdistType {
  static constexpr std::uint32_t kType = kDsPdist;
  static constexpr std::uint32_t kKeySize = 8;
  static constexpr std::uint32_t kCounters = 2;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlhost_calc_delta2: NULL pointer!",
      .delta_zero_interval = "dspdist_calc_delta() found a 0-length interval.",
      .rate_null = "dspdist_calc_rate: NULL pointer!",
      .rate_zero_interval = "dspdist_calc_rate() found a 0-length interval.",
      .getnext_failed = "dspdist_rpc_getnext: RPC failed",
      .upload_failed = "dspdist_upload() error 1.",
      .add_failed = "Unable to add active dspdist collection.",
  };

  static constexpr auto kControlProcedure = dspdist_control_getnext;
  static constexpr auto kRowProcedure = dspdist_table_get;
  static constexpr auto kControlIndex = &DsPdistRowReply::dsmonPdistCtlIndex;
  static constexpr auto kTimeMark = &DsPdistRowReply::dsmonPdistTimeMark;
  static constexpr auto compare = compare_words<2>;

  static void go_on(DsPdistKey& key, const DsPdistRowReply& row) {
    key.dsmonAggGroupIndex = row.dsmonAggGroupIndex;
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
  }
  static void fill(const DsPdistRowReply& row, unsigned char* record) {
    put_words(record, row.dsmonAggGroupIndex, row.protocolDirLocalIndex);
    put_counters<kKeySize>(record, row.dsmonPdistStatsPkts, row.dsmonPdistStatsOctets);
  }
};

struct DsHostType {
  static constexpr std::uint32_t kType = kDsHost;
  static constexpr std::uint32_t kKeySize = 28;
  static constexpr std::uint32_t kCounters = 4;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlhost_calc_delta: NULL pointer!",
      .delta_zero_interval = "dshost_calc_delta() found a 0-length interval.",
      .rate_null = "dshost_calc_rate: NULL pointer!",
      .rate_zero_interval = "dshost_calc_rate() found a 0-length interval.",
      .getnext_failed = "dshost_rpc_getnext: RPC failed",
      .upload_failed = "dshost_upload() error 1.",
      .add_failed = "Unable to add active dshost collection.",
  };

  static constexpr auto kControlProcedure = dshost_control_getnext;
  static constexpr auto kRowProcedure = dshost_table_get;
  static constexpr auto kControlIndex = &DsHostRowReply::dsmonHostCtlIndex;
  static constexpr auto kTimeMark = &DsHostRowReply::dsmonHostTimeMark;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(DsHostKey& key, const DsHostRowReply& row) {
    key.dsmonAggGroupIndex = row.dsmonAggGroupIndex;
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
    key.dsmonHostAddress = row.dsmonHostAddress;
    key.address_word = row.address_word;
  }
  static void fill(const DsHostRowReply& row, unsigned char* record) {
    put_words(record, row.dsmonAggGroupIndex, row.protocolDirLocalIndex, row.address_word);
    put_address(record + 12, row.dsmonHostAddress);
    put_counters<kKeySize>(record, row.in_pkts, row.in_octets, row.out_pkts, row.out_octets);
  }
};

// No control procedure: control rows of this type are not adopted, and no control message creates
// one.
struct DsMatrixType {
  static constexpr std::uint32_t kKeySize = 52;
  static constexpr std::uint32_t kCounters = 2;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlhost_calc_delta: NULL pointer!",
      .delta_zero_interval = "dsmatrix_calc_delta() found a 0-length interval.",
      .rate_null = "dsmatrix_calc_rate: NULL pointer!",
      .rate_zero_interval = "dsmatrix_calc_rate() found a 0-length interval.",
      .getnext_failed = "dsmatrix_rpc_getnext: RPC failed",
      .upload_failed = "dsmatrix_upload() error 1.",
      .add_failed = nullptr,
  };

  static constexpr auto kRowProcedure = dsmatrix_table_get;
  static constexpr auto kControlIndex = &DsMatrixRowReply::dsmonMatrixCtlIndex;
  static constexpr auto kTimeMark = &DsMatrixRowReply::dsmonMatrixTimeMark;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(DsMatrixKey& key, const DsMatrixRowReply& row) {
    key.dsmonAggGroupIndex = row.dsmonAggGroupIndex;
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
    key.source_address = row.source_address;
    key.dest_address = row.dest_address;
    key.key_word_1 = row.key_word_1;
    key.key_word_2 = row.key_word_2;
    key.key_word_3 = row.key_word_3;
  }
  // The key words stand in another order than on the wire.
  static void fill(const DsMatrixRowReply& row, unsigned char* record) {
    put_words(record, row.dsmonAggGroupIndex, row.protocolDirLocalIndex, row.key_word_2);
    put_address(record + 12, row.source_address);
    put_words(record + 28, row.key_word_3);
    put_address(record + 32, row.dest_address);
    put_words(record + 48, row.key_word_1);
    put_counters<kKeySize>(record, row.pkts, row.octets);
  }
};

}  // namespace

constexpr CollectionOps dsstats_ops = collection_ops<DsStatsType>();
constexpr CollectionOps dspdist_ops = collection_ops<DsPdistType>();
constexpr CollectionOps dshost_ops = collection_ops<DsHostType>();
constexpr CollectionOps dsmatrix_ops = collection_ops<DsMatrixType>();

}  // namespace tally
