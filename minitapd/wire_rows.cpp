#include "minitapd/wire_rows.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace minitapd {

namespace {

// The wire has int where the tables are unsigned; the bits are the same.
std::int32_t as_int(std::int64_t value) {
  return static_cast<std::int32_t>(value);
}
std::uint32_t as_uint(std::int64_t value) {
  return static_cast<std::uint32_t>(value);
}
std::int32_t as_int(std::uint32_t value) {
  return static_cast<std::int32_t>(value);
}

std::string bytes_of(const tapd_bytes& wire) {
  return {reinterpret_cast<const char*>(wire.tapd_bytes_val), wire.tapd_bytes_len};
}

std::string bytes_of(const tapd_address20& wire) {
  return {reinterpret_cast<const char*>(wire), sizeof(tapd_address20)};
}

// rpcgen's types have no const; nothing that encodes writes through these pointers.
void lend(tapd_bytes& wire, const std::string& bytes) {
  wire.tapd_bytes_len = static_cast<u_int>(bytes.size());
  wire.tapd_bytes_val = reinterpret_cast<u_char*>(const_cast<char*>(bytes.data()));
}

char* lend(const std::string& text) {
  return const_cast<char*>(text.c_str());
}

void copy(tapd_address20& wire, const std::string& bytes) {
  const std::size_t size = std::min(bytes.size(), sizeof(tapd_address20));
  std::fill(std::begin(wire), std::end(wire), static_cast<u_char>(0));
  std::copy_n(bytes.begin(), size, std::begin(wire));
}

Request finish(Table table, Request request) {
  normalize_key(table, request.key);
  return request;
}

}  // namespace

Request read_key(const tapd_control_key& wire) {
  return {
      .control_index = wire.index, .key = {}, .count = 0, .request = wire.request, .others = {}};
}

Request read_key(const tapd_host_key& wire) {
  return {.control_index = wire.hostIndex,
          .key = {.numbers = {}, .addresses = {bytes_of(wire.hostAddress)}},
          .count = wire.count,
          .request = 0,
          .others = {{"mode", wire.mode}}};
}

Request read_key(const tapd_matrix_key& wire) {
  return {.control_index = wire.matrixSDIndex,
          .key = {.numbers = {},
                  .addresses = {bytes_of(wire.matrixSDSourceAddress),
                                bytes_of(wire.matrixSDDestAddress)}},
          .count = wire.count,
          .request = 0,
          .others = {{"mode", wire.mode}, {"direction", wire.direction}}};
}

Request read_key(const tapd_pdist_key& wire) {
  return finish(Table::pdist, {.control_index = wire.protocolDistControlIndex,
                               .key = {.numbers = {wire.protocolDirLocalIndex}, .addresses = {}},
                               .count = wire.count,
                               .request = 0,
                               .others = {{"mode", wire.mode}}});
}

Request read_key(const tapd_nlhost_key& wire) {
  return finish(Table::nlhost, {.control_index = wire.hlHostControlIndex,
                                .key = {.numbers = {wire.protocolDirLocalIndex},
                                        .addresses = {bytes_of(wire.nlHostAddress)}},
                                .count = wire.count,
                                .request = 0,
                                .others = {{"mode", wire.mode},
                                           {"time_mark", wire.nlHostTimeMark},
                                           {"reserved_1", wire.reserved_1},
                                           {"reserved_2", wire.reserved_2}}});
}

Request read_key(const tapd_nlmatrix_key& wire) {
  return finish(Table::nlmatrix, {.control_index = wire.hlMatrixControlIndex,
                                  .key = {.numbers = {wire.protocolDirLocalIndex},
                                          .addresses = {bytes_of(wire.nlMatrixSDSourceAddress),
                                                        bytes_of(wire.nlMatrixSDDestAddress)}},
                                  .count = wire.count,
                                  .request = 0,
                                  .others = {{"mode", wire.mode},
                                             {"time_mark", wire.nlMatrixSDTimeMark},
                                             {"reserved_1", wire.reserved_1},
                                             {"reserved_2", wire.reserved_2},
                                             {"reserved_3", wire.reserved_3}}});
}

// The sign of the number depends on the table; the caller normalises it.
Request read_key(const tapd_indexed_key& wire) {
  return {.control_index = wire.control_index,
          .key = {.numbers = {wire.row_key}, .addresses = {}},
          .count = 0,
          .request = wire.request,
          .others = {}};
}

Request read_key(const tapd_dspdist_key& wire) {
  return finish(
      Table::dspdist,
      {.control_index = wire.dsmonPdistCtlIndex,
       .key = {.numbers = {wire.dsmonAggGroupIndex, wire.protocolDirLocalIndex}, .addresses = {}},
       .count = 0,
       .request = wire.request,
       .others = {{"time_mark", wire.dsmonPdistTimeMark}}});
}

Request read_key(const tapd_dshost_key& wire) {
  return finish(
      Table::dshost,
      {.control_index = wire.dsmonHostCtlIndex,
       .key = {.numbers = {wire.dsmonAggGroupIndex, wire.protocolDirLocalIndex, wire.address_word},
               .addresses = {bytes_of(wire.dsmonHostAddress)}},
       .count = 0,
       .request = wire.request,
       .others = {{"time_mark", wire.dsmonHostTimeMark}}});
}

Request read_key(const tapd_dsmatrix_key& wire) {
  return finish(Table::dsmatrix,
                {.control_index = wire.dsmonMatrixCtlIndex,
                 .key = {.numbers = {wire.dsmonAggGroupIndex, wire.protocolDirLocalIndex,
                                     wire.key_word_1, wire.key_word_2, wire.key_word_3},
                         .addresses = {bytes_of(wire.source_address), bytes_of(wire.dest_address)}},
                 .count = 0,
                 .request = wire.request,
                 .others = {{"time_mark", wire.dsmonMatrixTimeMark}}});
}

void fill(tapd_host_row& wire, const Row& row) {
  wire.row_status = row.row_status;
  lend(wire.hostAddress, row.key.addresses[0]);
  wire.hostCreationOrder = as_int(row.detail);
  wire.hostIndex = row.control_index;
  wire.hostInPkts = row.counters[0];
  wire.hostOutPkts = row.counters[1];
  wire.hostInOctets = row.counters[2];
  wire.hostOutOctets = row.counters[3];
  wire.hostOutErrors = row.counters[4];
  wire.hostOutBroadcastPkts = row.counters[5];
  wire.hostOutMulticastPkts = row.counters[6];
}

void fill(tapd_matrix_row& wire, const Row& row) {
  wire.row_status = row.row_status;
  lend(wire.matrixSDSourceAddress, row.key.addresses[0]);
  lend(wire.matrixSDDestAddress, row.key.addresses[1]);
  wire.matrixSDIndex = row.control_index;
  wire.matrixSDPkts = row.counters[0];
  wire.matrixSDOctets = row.counters[1];
  wire.matrixSDErrors = row.counters[2];
}

void fill(tapd_pdist_row& wire, const Row& row) {
  wire.row_status = row.row_status;
  wire.protocolDistControlIndex = row.control_index;
  wire.protocolDirLocalIndex = as_int(row.key.numbers[0]);
  wire.protocolDistStatsPkts = row.counters[0];
  wire.protocolDistStatsOctets = row.counters[1];
  wire.protocol_tag = row.detail;
}

void fill(tapd_nlhost_row& wire, const Row& row) {
  wire.row_status = row.row_status;
  wire.nlHostTimeMark = row.time_mark;
  lend(wire.nlHostAddress, row.key.addresses[0]);
  wire.nlHostInPkts = row.counters[0];
  wire.nlHostOutPkts = row.counters[1];
  wire.nlHostInOctets = row.counters[2];
  wire.nlHostOutOctets = row.counters[3];
  wire.nlHostOutMacNonUnicastPkts = row.counters[4];
  wire.nlHostCreateTime = row.detail;
  wire.hlHostControlIndex = row.control_index;
  wire.protocolDirLocalIndex = as_int(row.key.numbers[0]);
  wire.reserved = 0;
}

void fill(tapd_nlmatrix_row& wire, const Row& row) {
  wire.row_status = row.row_status;
  wire.nlMatrixSDTimeMark = row.time_mark;
  lend(wire.nlMatrixSDSourceAddress, row.key.addresses[0]);
  lend(wire.nlMatrixSDDestAddress, row.key.addresses[1]);
  wire.nlMatrixSDPkts = row.counters[0];
  wire.nlMatrixSDOctets = row.counters[1];
  wire.nlMatrixSDCreateTime = row.detail;
  wire.hlMatrixControlIndex = row.control_index;
  wire.protocolDirLocalIndex = as_int(row.key.numbers[0]);
  wire.reserved = 0;
}

void fill(tapd_vlan_row_reply& wire, const Row& row) {
  wire.smonVlanIdStatsId = as_int(row.key.numbers[0]);
  wire.smonVlanIdStatsTotalPkts = row.counters[0];
  wire.smonVlanIdStatsTotalOctets = row.counters[1];
  wire.smonVlanIdStatsNUcastPkts = row.counters[2];
  wire.smonVlanIdStatsNUcastOctets = row.counters[3];
  wire.smonVlanIdStatsCreateTime = row.detail;
  wire.control_index = row.control_index;
}

void fill(tapd_prio_row_reply& wire, const Row& row) {
  wire.smonPrioStatsId = as_int(row.key.numbers[0]);
  wire.smonPrioStatsPkts = row.counters[0];
  wire.smonPrioStatsOctets = row.counters[1];
  wire.control_index = row.control_index;
}

void fill(tapd_dsstats_row_reply& wire, const Row& row) {
  wire.dsmonAggGroupIndex = as_uint(row.key.numbers[0]);
  wire.dsmonStatsControlIndex = as_uint(row.control_index);
  wire.in_pkts = row.counters[0];
  wire.in_octets = row.counters[1];
  wire.out_pkts = row.counters[2];
  wire.out_octets = row.counters[3];
}

void fill(tapd_dspdist_row_reply& wire, const Row& row) {
  wire.dsmonPdistCtlIndex = as_uint(row.control_index);
  wire.dsmonPdistTimeMark = row.time_mark;
  wire.dsmonAggGroupIndex = as_uint(row.key.numbers[0]);
  wire.protocolDirLocalIndex = as_int(row.key.numbers[1]);
  wire.dsmonPdistStatsPkts = row.counters[0];
  wire.dsmonPdistStatsOctets = row.counters[1];
}

void fill(tapd_dshost_row_reply& wire, const Row& row) {
  wire.dsmonHostCtlIndex = row.control_index;
  wire.dsmonHostTimeMark = row.time_mark;
  wire.dsmonAggGroupIndex = as_uint(row.key.numbers[0]);
  wire.protocolDirLocalIndex = as_int(row.key.numbers[1]);
  copy(wire.dsmonHostAddress, row.key.addresses[0]);
  wire.address_word = as_int(row.key.numbers[2]);
  wire.in_pkts = row.counters[0];
  wire.in_octets = row.counters[1];
  wire.out_pkts = row.counters[2];
  wire.out_octets = row.counters[3];
}

void fill(tapd_dsmatrix_row_reply& wire, const Row& row) {
  wire.dsmonMatrixCtlIndex = row.control_index;
  wire.dsmonMatrixTimeMark = row.time_mark;
  wire.dsmonAggGroupIndex = as_uint(row.key.numbers[0]);
  wire.protocolDirLocalIndex = as_int(row.key.numbers[1]);
  copy(wire.source_address, row.key.addresses[0]);
  copy(wire.dest_address, row.key.addresses[1]);
  wire.key_word_1 = as_int(row.key.numbers[2]);
  wire.key_word_2 = as_int(row.key.numbers[3]);
  wire.key_word_3 = as_int(row.key.numbers[4]);
  wire.pkts = row.counters[0];
  wire.octets = row.counters[1];
}

void fill(tapd_host_control_reply& wire, const ControlRow& row) {
  wire.hostControlIndex = row.index;
  wire.hostControlDataSource = as_int(row.fields[0]);
  wire.hostControlTableSize = as_int(row.fields[1]);
  wire.hostControlLastDeleteTime = row.fields[2];
  wire.hostControlOwner = lend(row.owner);
  wire.hostControlStatus = row.status;
}

void fill(tapd_matrix_control_reply& wire, const ControlRow& row) {
  wire.matrixControlIndex = row.index;
  wire.matrixControlDataSource = as_int(row.fields[0]);
  wire.matrixControlTableSize = as_int(row.fields[1]);
  wire.matrixControlLastDeleteTime = row.fields[2];
  wire.matrixControlOwner = lend(row.owner);
  wire.matrixControlStatus = row.status;
}

void fill(tapd_pdist_control_reply& wire, const ControlRow& row) {
  wire.protocolDistControlIndex = row.index;
  wire.protocolDistControlDataSource = as_int(row.fields[0]);
  wire.protocolDistControlDroppedFrames = row.fields[1];
  wire.protocolDistControlCreateTime = row.fields[2];
  wire.protocolDistControlOwner = lend(row.owner);
  wire.protocolDistControlStatus = row.status;
}

void fill(tapd_nl_control_reply& wire, const ControlRow& row) {
  wire.index = row.index;
  wire.dataSource = as_int(row.fields[0]);
  wire.nlDroppedFrames = row.fields[1];
  wire.nlInserts = row.fields[2];
  wire.nlDeletes = row.fields[3];
  wire.nlMaxDesiredEntries = as_int(row.fields[4]);
  wire.alDroppedFrames = row.fields[5];
  wire.alInserts = row.fields[6];
  wire.alDeletes = row.fields[7];
  wire.alMaxDesiredEntries = as_int(row.fields[8]);
  wire.owner = lend(row.owner);
  wire.control_status = row.status;
}

void fill(tapd_smon_control_reply& wire, const ControlRow& row) {
  wire.index = row.index;
  wire.dataSource = row.fields[0];
  wire.createTime = row.fields[1];
  wire.owner = lend(row.owner);
  wire.control_status = row.status;
}

void fill(tapd_dsstats_control_reply& wire, const ControlRow& row) {
  wire.index = as_uint(row.index);
  wire.field_3 = row.fields[0];
  wire.field_4 = row.fields[1];
  wire.field_5 = as_int(row.fields[2]);
  wire.owner = lend(row.owner);
  wire.control_status = row.status;
}

void fill(tapd_dspdist_control_reply& wire, const ControlRow& row) {
  wire.index = row.index;
  wire.field_3 = row.fields[0];
  wire.field_4 = as_int(row.fields[1]);
  wire.field_5 = row.fields[2];
  wire.owner = lend(row.owner);
  wire.field_7 = row.fields[3];
  wire.field_8 = row.fields[4];
  wire.field_9 = row.fields[5];
  wire.control_status = row.status;
}

void fill(tapd_dshost_control_reply& wire, const ControlRow& row) {
  wire.index = row.index;
  wire.field_3 = row.fields[0];
  wire.field_4 = row.fields[1];
  wire.field_5 = as_int(row.fields[2]);
  wire.field_6 = as_int(row.fields[3]);
  wire.field_7 = as_int(row.fields[4]);
  wire.field_8 = row.fields[5];
  wire.field_9 = row.fields[6];
  wire.field_10 = row.fields[7];
  wire.owner = lend(row.owner);
  wire.control_status = row.status;
}

}  // namespace minitapd
