// What the tests know about every agent collection type: the sizes of its records, and what it says
// in the log, which names other types in places.
#pragma once

#include <cstdint>

#include "agent/tapd_agent.h"

namespace tally {

struct TypeFacts {
  const char* name;
  std::uint32_t type;
  std::uint32_t key_size;
  std::uint32_t counters;
  const char* delta_null;
  const char* delta_zero;
  const char* rate_null;
  const char* rate_zero;
  const char* add_failed;  // null: never adopted

  const CollectionOps& ops() const { return agent_type_ops(type); }
};

// By their codes.
inline constexpr TypeFacts kTypeFacts[] = {
    {"host", kHost, 6, 7, "host_calc_delta: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "host_calc_rate: NULL pointer!",
     "host_calc_rate() found a 0-length interval.", "Unable to add active host collection."},
    {"matrix", kMatrix, 12, 3, "matrix_calc_delta: NULL pointer!",
     "matrix_calc_delta() found a 0-length interval.", "matrix_calc_rate: NULL pointer!",
     "matrix_calc_rate() found a 0-length interval.", "Unable to add active matrix collection."},
    {"pdist", kPdist, 8, 2, "pdistcalc_delta2: NULL pointer!",
     "pdist_calc_delta() found a 0-length interval.", "pdist_calc_rate: NULL pointer!",
     "pdist_calc_rate() found a 0-length interval.", "Unable to add active pdist collection."},
    {"nlhost", kNlHost, 24, 5, "nlhost_calc_delta2: NULL pointer!",
     "nlhost_calc_delta() found a 0-length interval.", "nlhost_calc_rate: NULL pointer!",
     "nlhost_calc_rate() found a 0-length interval.", "Unable to add active nlhost collection."},
    {"nlmatrix", kNlMatrix, 44, 2, "nlmatrixt_calc_delta: NULL pointer!",
     "nlmatrix_calc_delta() found a 0-length interval.", "nlmatrixt_calc_rate: NULL pointer!",
     "nlmatrix_calc_rate() found a 0-length interval.",
     "Unable to add active nlmatrix collection."},
    {"vlan", kVlan, 4, 4, "pdistcalc_delta2: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "vlan_calc_rate: NULL pointer!",
     "vlan_calc_rate() found a 0-length interval.", "Unable to add active vlan collection."},
    {"prio", kPrio, 4, 2, "pdistcalc_delta: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "prio_calc_rate: NULL pointer!",
     "prio_calc_rate() found a 0-length interval.", "Unable to add active prio collection."},
    {"dsstats", kDsStats, 4, 4, "nlhost_calc_delta: NULL pointer!",
     "dsstats_calc_delta() found a 0-length interval.", "dsstats_calc_rate: NULL pointer!",
     "dsstats_calc_rate() found a 0-length interval.", "Unable to add active dsstats collection."},
    {"dspdist", kDsPdist, 8, 2, "nlhost_calc_delta2: NULL pointer!",
     "dspdist_calc_delta() found a 0-length interval.", "dspdist_calc_rate: NULL pointer!",
     "dspdist_calc_rate() found a 0-length interval.", "Unable to add active dspdist collection."},
    {"dshost", kDsHost, 28, 4, "nlhost_calc_delta: NULL pointer!",
     "dshost_calc_delta() found a 0-length interval.", "dshost_calc_rate: NULL pointer!",
     "dshost_calc_rate() found a 0-length interval.", "Unable to add active dshost collection."},
    {"dsmatrix", kDsMatrix, 52, 2, "nlhost_calc_delta: NULL pointer!",
     "dsmatrix_calc_delta() found a 0-length interval.", "dsmatrix_calc_rate: NULL pointer!",
     "dsmatrix_calc_rate() found a 0-length interval.", nullptr},
};

}  // namespace tally
