// The wire types as rpcgen makes them, beside ours: Peer<HostRow> names the type that travels as
// the same bytes, its XDR routine, and which member stands for which.
#pragma once

#include <minitapd/tapd.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "agent/procedures.h"

namespace tally {

// Peer<T>::fields calls visit(name, our member, their member) for every member in wire order.
template <class T>
struct Peer;

#define FIELD(name) visit(#name, ours.name, theirs.name);
#define FIELD_AS(name, other) visit(#name, ours.name, theirs.other);
#define WIRE_PEER(Ours, Theirs, FIELDS)                                                 \
  template <>                                                                           \
  struct Peer<Ours> {                                                                   \
    using Type = Theirs;                                                                \
    static bool_t xdr(XDR* stream, Type* value) { return xdr_##Theirs(stream, value); } \
    template <class Visit>                                                              \
    static void fields(const Ours& ours, const Type& theirs, const Visit& visit) {      \
      FIELDS                                                                            \
    }                                                                                   \
  };

// clang-format off
template <> struct Peer<Nothing> { using Type = void; };
WIRE_PEER(ControlKey, tapd_control_key, FIELD(index) FIELD(request))
WIRE_PEER(IndexedKey, tapd_indexed_key, FIELD(control_index) FIELD(row_key) FIELD(request))
WIRE_PEER(AgentSystemInfo, tapd_system_info,
          FIELD(descr) FIELD(up_time) FIELD(text_2) FIELD(text_3) FIELD(text_4) FIELD(text_5)
          FIELD(services))

WIRE_PEER(HostControlReply, tapd_host_control_reply,
          FIELD(status) FIELD(hostControlIndex) FIELD(hostControlDataSource)
          FIELD(hostControlTableSize) FIELD(hostControlLastDeleteTime) FIELD(hostControlOwner)
          FIELD(hostControlStatus))
WIRE_PEER(MatrixControlReply, tapd_matrix_control_reply,
          FIELD(status) FIELD(matrixControlIndex) FIELD(matrixControlDataSource)
          FIELD(matrixControlTableSize) FIELD(matrixControlLastDeleteTime)
          FIELD(matrixControlOwner) FIELD(matrixControlStatus))
WIRE_PEER(PdistControlReply, tapd_pdist_control_reply,
          FIELD(status) FIELD(protocolDistControlIndex) FIELD(protocolDistControlDataSource)
          FIELD(protocolDistControlDroppedFrames) FIELD(protocolDistControlCreateTime)
          FIELD(protocolDistControlOwner) FIELD(protocolDistControlStatus))
WIRE_PEER(NlControlReply, tapd_nl_control_reply,
          FIELD(status) FIELD(index) FIELD(dataSource) FIELD(nlDroppedFrames) FIELD(nlInserts)
          FIELD(nlDeletes) FIELD(nlMaxDesiredEntries) FIELD(alDroppedFrames) FIELD(alInserts)
          FIELD(alDeletes) FIELD(alMaxDesiredEntries) FIELD(owner)
          FIELD_AS(row_status, control_status))
WIRE_PEER(SmonControlReply, tapd_smon_control_reply,
          FIELD(status) FIELD(index) FIELD(dataSource) FIELD(createTime) FIELD(owner)
          FIELD_AS(row_status, control_status))
WIRE_PEER(DsStatsControlReply, tapd_dsstats_control_reply,
          FIELD(status) FIELD(index) FIELD(field_3) FIELD(field_4) FIELD(field_5) FIELD(owner)
          FIELD_AS(row_status, control_status))
WIRE_PEER(DsPdistControlReply, tapd_dspdist_control_reply,
          FIELD(status) FIELD(index) FIELD(field_3) FIELD(field_4) FIELD(field_5) FIELD(owner)
          FIELD(field_7) FIELD(field_8) FIELD(field_9) FIELD_AS(row_status, control_status))
WIRE_PEER(DsHostControlReply, tapd_dshost_control_reply,
          FIELD(status) FIELD(index) FIELD(field_3) FIELD(field_4) FIELD(field_5) FIELD(field_6)
          FIELD(field_7) FIELD(field_8) FIELD(field_9) FIELD(field_10) FIELD(owner)
          FIELD_AS(row_status, control_status))

WIRE_PEER(HostTableKey, tapd_host_key,
          FIELD(hostIndex) FIELD(hostAddress) FIELD(count) FIELD(mode))
WIRE_PEER(HostRow, tapd_host_row,
          FIELD(row_status) FIELD(hostAddress) FIELD(hostCreationOrder) FIELD(hostIndex)
          FIELD(hostInPkts) FIELD(hostOutPkts) FIELD(hostInOctets) FIELD(hostOutOctets)
          FIELD(hostOutErrors) FIELD(hostOutBroadcastPkts) FIELD(hostOutMulticastPkts))
WIRE_PEER(HostRowList, tapd_host_rows, FIELD(rows))
WIRE_PEER(MatrixTableKey, tapd_matrix_key,
          FIELD(matrixSDIndex) FIELD(matrixSDSourceAddress) FIELD(matrixSDDestAddress)
          FIELD(count) FIELD(mode) FIELD(direction))
WIRE_PEER(MatrixRow, tapd_matrix_row,
          FIELD(row_status) FIELD(matrixSDSourceAddress) FIELD(matrixSDDestAddress)
          FIELD(matrixSDIndex) FIELD(matrixSDPkts) FIELD(matrixSDOctets) FIELD(matrixSDErrors))
WIRE_PEER(MatrixRowList, tapd_matrix_rows, FIELD(rows))
WIRE_PEER(PdistTableKey, tapd_pdist_key,
          FIELD(protocolDistControlIndex) FIELD(protocolDirLocalIndex) FIELD(mode) FIELD(count))
WIRE_PEER(PdistRow, tapd_pdist_row,
          FIELD(row_status) FIELD(protocolDistControlIndex) FIELD(protocolDirLocalIndex)
          FIELD(protocolDistStatsPkts) FIELD(protocolDistStatsOctets) FIELD(protocol_tag))
WIRE_PEER(PdistRowList, tapd_pdist_rows, FIELD(rows))
WIRE_PEER(PdistTotalsReply, tapd_pdist_totals_reply,
          FIELD(status) FIELD(total_pkts) FIELD(total_octets))

WIRE_PEER(NlHostTableKey, tapd_nlhost_key,
          FIELD(hlHostControlIndex) FIELD(nlHostTimeMark) FIELD(protocolDirLocalIndex)
          FIELD(reserved_1) FIELD(nlHostAddress) FIELD(mode) FIELD(reserved_2) FIELD(count))
WIRE_PEER(NlHostRow, tapd_nlhost_row,
          FIELD(row_status) FIELD(nlHostTimeMark) FIELD(nlHostAddress) FIELD(nlHostInPkts)
          FIELD(nlHostOutPkts) FIELD(nlHostInOctets) FIELD(nlHostOutOctets)
          FIELD(nlHostOutMacNonUnicastPkts) FIELD(nlHostCreateTime) FIELD(hlHostControlIndex)
          FIELD(protocolDirLocalIndex) FIELD(reserved))
WIRE_PEER(NlHostRowList, tapd_nlhost_rows, FIELD(rows))
WIRE_PEER(NlMatrixTableKey, tapd_nlmatrix_key,
          FIELD(hlMatrixControlIndex) FIELD(nlMatrixSDTimeMark) FIELD(protocolDirLocalIndex)
          FIELD(reserved_1) FIELD(nlMatrixSDSourceAddress) FIELD(nlMatrixSDDestAddress)
          FIELD(mode) FIELD(reserved_2) FIELD(reserved_3) FIELD(count))
WIRE_PEER(NlMatrixRow, tapd_nlmatrix_row,
          FIELD(row_status) FIELD(nlMatrixSDTimeMark) FIELD(nlMatrixSDSourceAddress)
          FIELD(nlMatrixSDDestAddress) FIELD(nlMatrixSDPkts) FIELD(nlMatrixSDOctets)
          FIELD(nlMatrixSDCreateTime) FIELD(hlMatrixControlIndex) FIELD(protocolDirLocalIndex)
          FIELD(reserved))
WIRE_PEER(NlMatrixRowList, tapd_nlmatrix_rows, FIELD(rows))

WIRE_PEER(VlanRowReply, tapd_vlan_row_reply,
          FIELD(status) FIELD(smonVlanIdStatsId) FIELD(smonVlanIdStatsTotalPkts)
          FIELD(smonVlanIdStatsTotalOctets) FIELD(smonVlanIdStatsNUcastPkts)
          FIELD(smonVlanIdStatsNUcastOctets) FIELD(smonVlanIdStatsCreateTime)
          FIELD(control_index))
WIRE_PEER(PrioRowReply, tapd_prio_row_reply,
          FIELD(status) FIELD(smonPrioStatsId) FIELD(smonPrioStatsPkts)
          FIELD(smonPrioStatsOctets) FIELD(control_index))
WIRE_PEER(DsStatsRowReply, tapd_dsstats_row_reply,
          FIELD(status) FIELD(dsmonAggGroupIndex) FIELD(dsmonStatsControlIndex) FIELD(in_pkts)
          FIELD(in_octets) FIELD(out_pkts) FIELD(out_octets))
WIRE_PEER(DsPdistKey, tapd_dspdist_key,
          FIELD(dsmonPdistCtlIndex) FIELD(dsmonPdistTimeMark) FIELD(dsmonAggGroupIndex)
          FIELD(protocolDirLocalIndex) FIELD(request))
WIRE_PEER(DsPdistRowReply, tapd_dspdist_row_reply,
          FIELD(status) FIELD(dsmonPdistCtlIndex) FIELD(dsmonPdistTimeMark)
          FIELD(dsmonAggGroupIndex) FIELD(protocolDirLocalIndex) FIELD(dsmonPdistStatsPkts)
          FIELD(dsmonPdistStatsOctets))
WIRE_PEER(DsHostKey, tapd_dshost_key,
          FIELD(dsmonHostCtlIndex) FIELD(dsmonHostTimeMark) FIELD(dsmonAggGroupIndex)
          FIELD(protocolDirLocalIndex) FIELD(dsmonHostAddress) FIELD(address_word) FIELD(request))
WIRE_PEER(DsHostRowReply, tapd_dshost_row_reply,
          FIELD(status) FIELD(dsmonHostCtlIndex) FIELD(dsmonHostTimeMark)
          FIELD(dsmonAggGroupIndex) FIELD(protocolDirLocalIndex) FIELD(dsmonHostAddress)
          FIELD(address_word) FIELD(in_pkts) FIELD(in_octets) FIELD(out_pkts) FIELD(out_octets))
WIRE_PEER(DsMatrixKey, tapd_dsmatrix_key,
          FIELD(dsmonMatrixCtlIndex) FIELD(dsmonMatrixTimeMark) FIELD(dsmonAggGroupIndex)
          FIELD(protocolDirLocalIndex) FIELD(source_address) FIELD(dest_address)
          FIELD(key_word_1) FIELD(key_word_2) FIELD(key_word_3) FIELD(request))
WIRE_PEER(DsMatrixRowReply, tapd_dsmatrix_row_reply,
          FIELD(status) FIELD(dsmonMatrixCtlIndex) FIELD(dsmonMatrixTimeMark)
          FIELD(dsmonAggGroupIndex) FIELD(protocolDirLocalIndex) FIELD(source_address)
          FIELD(dest_address) FIELD(key_word_1) FIELD(key_word_2) FIELD(key_word_3) FIELD(pkts)
          FIELD(octets))
// clang-format on
#undef WIRE_PEER
#undef FIELD_AS
#undef FIELD

// Two of them are a bare int on the other side.
template <class Ours>
struct IntPeer {
  using Type = int;
  static bool_t xdr(XDR* stream, int* value) { return xdr_int(stream, value); }
  template <class Visit>
  static void fields(const Ours& ours, int theirs, const Visit& visit) {
    const auto [member] = Ours::members(ours);
    visit("int", member, theirs);
  }
};
template <>
struct Peer<ControlIndex> : IntPeer<ControlIndex> {};
template <>
struct Peer<NullReply> : IntPeer<NullReply> {};

// for_each_wire_type calls function.template operator()<T>(name) for the argument and the result
// type of every procedure; types that several procedures share come as often.
template <class Function>
void for_each_wire_type(Function function) {
  for_each_procedure([&]<class Procedure>(const Procedure& procedure) {
    if constexpr (!std::is_same_v<typename Procedure::Argument, Nothing>) {
      function.template operator()<typename Procedure::Argument>(procedure.name);
    }
    function.template operator()<typename Procedure::Result>(procedure.name);
  });
}

}  // namespace tally
