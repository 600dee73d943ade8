// The results of the procedures as rpcgen makes them: Peer<HostRowList> names the type that travels
// as the same bytes, and its XDR routine. Which member is which is seen end to end, where the agent
// fills in its names and the files show ours.
#pragma once

#include <minitapd/tapd.h>

#include "agent/procedures.h"

namespace tally {

template <class T>
struct Peer;

#define WIRE_PEER(Ours, Theirs)                 \
  template <>                                   \
  struct Peer<Ours> {                           \
    using Type = Theirs;                        \
    static constexpr auto* xdr = &xdr_##Theirs; \
  };

WIRE_PEER(NullReply, int)
WIRE_PEER(AgentSystemInfo, tapd_system_info)
WIRE_PEER(HostControlReply, tapd_host_control_reply)
WIRE_PEER(MatrixControlReply, tapd_matrix_control_reply)
WIRE_PEER(PdistControlReply, tapd_pdist_control_reply)
WIRE_PEER(NlControlReply, tapd_nl_control_reply)
WIRE_PEER(SmonControlReply, tapd_smon_control_reply)
WIRE_PEER(DsStatsControlReply, tapd_dsstats_control_reply)
WIRE_PEER(DsPdistControlReply, tapd_dspdist_control_reply)
WIRE_PEER(DsHostControlReply, tapd_dshost_control_reply)
WIRE_PEER(HostRowList, tapd_host_rows)
WIRE_PEER(MatrixRowList, tapd_matrix_rows)
WIRE_PEER(PdistRowList, tapd_pdist_rows)
WIRE_PEER(PdistTotalsReply, tapd_pdist_totals_reply)
WIRE_PEER(NlHostRowList, tapd_nlhost_rows)
WIRE_PEER(NlMatrixRowList, tapd_nlmatrix_rows)
WIRE_PEER(VlanRowReply, tapd_vlan_row_reply)
WIRE_PEER(PrioRowReply, tapd_prio_row_reply)
WIRE_PEER(DsStatsRowReply, tapd_dsstats_row_reply)
WIRE_PEER(DsPdistRowReply, tapd_dspdist_row_reply)
WIRE_PEER(DsHostRowReply, tapd_dshost_row_reply)
WIRE_PEER(DsMatrixRowReply, tapd_dsmatrix_row_reply)
#undef WIRE_PEER

}  // namespace tally
