#include <algorithm>
#include <cstdint>

#include "agent/agent_type.h"
#include "agent/procedures.h"
#include "agent/record_key.h"
#include "agent/records.h"

namespace tally {
namespace {

constexpr std::uint32_t kAddressSize = 16;

// put_network_address writes length and field.
void put_network_address(unsigned char* field, const ByteList& address) {
  put_words(field, std::min(address.size(), kAddressSize));
  put_address<kAddressSize>(field + 4, address);
}

struct NlHostType {
  static constexpr std::uint32_t kType = kNlHost;
  static constexpr std::uint32_t kKeySize = 24;
  static constexpr std::uint32_t kCounters = 5;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlhost_calc_delta2: NULL pointer!",
      .delta_zero_interval = "nlhost_calc_delta() found a 0-length interval.",
      .rate_null = "nlhost_calc_rate: NULL pointer!",
      .rate_zero_interval = "nlhost_calc_rate() found a 0-length interval.",
      .getnext_failed = "nlhost_rpc_getnext: RPC failed",
      .upload_failed = "nlhost_upload() error 1.",
      .add_failed = "Unable to add active nlhost collection.",
  };

  static constexpr auto kControlProcedure = nlhost_control_getnext;
  static constexpr auto kRowProcedure = nlhost_table_get;
  static constexpr auto kControlIndex = &NlHostRow::hlHostControlIndex;
  static constexpr auto kTimeMark = &NlHostRow::nlHostTimeMark;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(NlHostTableKey& key, const NlHostRow& row) {
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
    key.nlHostAddress = row.nlHostAddress;
  }
  static void fill(const NlHostRow& row, unsigned char* record) {
    put_words(record, row.protocolDirLocalIndex);
    put_network_address(record + 4, row.nlHostAddress);
    put_counters<kKeySize>(record, row.nlHostInPkts, row.nlHostOutPkts, row.nlHostInOctets,
                           row.nlHostOutOctets, row.nlHostOutMacNonUnicastPkts);
  }
};

struct NlMatrixType {
  static constexpr std::uint32_t kType = kNlMatrix;
  static constexpr std::uint32_t kKeySize = 44;
  static constexpr std::uint32_t kCounters = 2;
  static constexpr AgentTexts kTexts = {
      .delta_null = "nlmatrixt_calc_delta: NULL pointer!",
      .delta_zero_interval = "nlmatrix_calc_delta() found a 0-length interval.",
      .rate_null = "nlmatrixt_calc_rate: NULL pointer!",
      .rate_zero_interval = "nlmatrix_calc_rate() found a 0-length interval.",
      .getnext_failed = "nlmatrix_rpc_getnext: RPC failed",
      .upload_failed = "nlmatrix_upload() error 1.",
      .add_failed = "Unable to add active nlmatrix collection.",
  };

  static constexpr auto kControlProcedure = nlmatrix_control_getnext;
  static constexpr auto kRowProcedure = nlmatrix_table_get;
  static constexpr auto kControlIndex = &NlMatrixRow::hlMatrixControlIndex;
  static constexpr auto kTimeMark = &NlMatrixRow::nlMatrixSDTimeMark;
  static constexpr auto compare = compare_bytes<kKeySize>;

  static void go_on(NlMatrixTableKey& key, const NlMatrixRow& row) {
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
    key.nlMatrixSDSourceAddress = row.nlMatrixSDSourceAddress;
    key.nlMatrixSDDestAddress = row.nlMatrixSDDestAddress;
  }
  static void fill(const NlMatrixRow& row, unsigned char* record) {
    put_words(record, row.protocolDirLocalIndex);
    put_network_address(record + 4, row.nlMatrixSDSourceAddress);
    put_network_address(record + 24, row.nlMatrixSDDestAddress);
    put_counters<kKeySize>(record, row.nlMatrixSDPkts, row.nlMatrixSDOctets);
  }
};

}  // namespace

constexpr CollectionOps nlhost_ops = collection_ops<NlHostType>();
constexpr CollectionOps nlmatrix_ops = collection_ops<NlMatrixType>();

}  // namespace tally
