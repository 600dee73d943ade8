// Between the wire types that rpcgen makes of tapd.x and the Row of tables.h.
//
// Overloads by wire type, so that the procedure templates are written once. Filled wire structures
// borrow texts and addresses from the Row or ControlRow that they were filled from. They are valid
// as long as that lives, and never go to xdr_free.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "minitapd/tables.h"
#include "minitapd/tapd.h"

namespace minitapd {

// What a key argument asks for. `others` holds the remaining members for the trace.
struct Request {
  std::int32_t control_index = 0;
  Key key;
  std::int32_t count = 0;    // bulk: largest batch wanted
  std::int32_t request = 0;  // one by one: TAPD_REQUEST_EXACT or TAPD_REQUEST_NEXT
  std::vector<std::pair<std::string_view, std::int64_t>> others;
};

Request read_key(const tapd_control_key& wire);
Request read_key(const tapd_host_key& wire);
Request read_key(const tapd_matrix_key& wire);
Request read_key(const tapd_pdist_key& wire);
Request read_key(const tapd_nlhost_key& wire);
Request read_key(const tapd_nlmatrix_key& wire);
Request read_key(const tapd_indexed_key& wire);
Request read_key(const tapd_dspdist_key& wire);
Request read_key(const tapd_dshost_key& wire);
Request read_key(const tapd_dsmatrix_key& wire);

void fill(tapd_host_row& wire, const Row& row);
void fill(tapd_matrix_row& wire, const Row& row);
void fill(tapd_pdist_row& wire, const Row& row);
void fill(tapd_nlhost_row& wire, const Row& row);
void fill(tapd_nlmatrix_row& wire, const Row& row);

// The replies that hold one row or one control entry; their status member is not touched.
void fill(tapd_vlan_row_reply& wire, const Row& row);
void fill(tapd_prio_row_reply& wire, const Row& row);
void fill(tapd_dsstats_row_reply& wire, const Row& row);
void fill(tapd_dspdist_row_reply& wire, const Row& row);
void fill(tapd_dshost_row_reply& wire, const Row& row);
void fill(tapd_dsmatrix_row_reply& wire, const Row& row);

void fill(tapd_host_control_reply& wire, const ControlRow& row);
void fill(tapd_matrix_control_reply& wire, const ControlRow& row);
void fill(tapd_pdist_control_reply& wire, const ControlRow& row);
void fill(tapd_nl_control_reply& wire, const ControlRow& row);
void fill(tapd_smon_control_reply& wire, const ControlRow& row);
void fill(tapd_dsstats_control_reply& wire, const ControlRow& row);
void fill(tapd_dspdist_control_reply& wire, const ControlRow& row);
void fill(tapd_dshost_control_reply& wire, const ControlRow& row);

}  // namespace minitapd
