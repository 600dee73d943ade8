// The results of the procedures as rpcgen makes them. End-to-end tests check which member is which:
// the agent fills in its names, and the files show ours.
#pragma once

#include <minitapd/tapd.h>

#include "agent/procedures.h"

namespace tally {

// rpcgen's type for the same bytes, and its XDR routine.
template <class T>
struct Theirs {
  using Type = T;
  bool_t (*xdr)(XDR*, T*);
};
template <class T>
Theirs(bool_t (*)(XDR*, T*)) -> Theirs<T>;

// for_each_procedure calls a function with every procedure and rpcgen's type for its result.
template <class Function>
void for_each_procedure(Function function) {
  function(agent_null, Theirs{xdr_int});
  function(agent_system_info, Theirs{xdr_tapd_system_info});
  function(host_control_getnext, Theirs{xdr_tapd_host_control_reply});
  function(host_table_get, Theirs{xdr_tapd_host_rows});
  function(matrix_control_getnext, Theirs{xdr_tapd_matrix_control_reply});
  function(matrix_table_get, Theirs{xdr_tapd_matrix_rows});
  function(pdist_control_getnext, Theirs{xdr_tapd_pdist_control_reply});
  function(pdist_table_get, Theirs{xdr_tapd_pdist_rows});
  function(pdist_source_totals_get, Theirs{xdr_tapd_pdist_totals_reply});
  function(nlhost_control_getnext, Theirs{xdr_tapd_nl_control_reply});
  function(nlhost_table_get, Theirs{xdr_tapd_nlhost_rows});
  function(nlmatrix_control_getnext, Theirs{xdr_tapd_nl_control_reply});
  function(nlmatrix_table_get, Theirs{xdr_tapd_nlmatrix_rows});
  function(vlan_control_getnext, Theirs{xdr_tapd_smon_control_reply});
  function(vlan_table_get, Theirs{xdr_tapd_vlan_row_reply});
  function(prio_control_getnext, Theirs{xdr_tapd_smon_control_reply});
  function(prio_table_get, Theirs{xdr_tapd_prio_row_reply});
  function(dsstats_control_getnext, Theirs{xdr_tapd_dsstats_control_reply});
  function(dsstats_table_get, Theirs{xdr_tapd_dsstats_row_reply});
  function(dspdist_control_getnext, Theirs{xdr_tapd_dspdist_control_reply});
  function(dspdist_table_get, Theirs{xdr_tapd_dspdist_row_reply});
  function(dshost_control_getnext, Theirs{xdr_tapd_dshost_control_reply});
  function(dshost_table_get, Theirs{xdr_tapd_dshost_row_reply});
  function(dsmatrix_table_get, Theirs{xdr_tapd_dsmatrix_row_reply});
}

}  // namespace tally
