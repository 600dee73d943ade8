// What the tests know about every agent collection type: the sizes of its records, and the names
// that it goes by in the log, which are those of other types in places.
#pragma once

#include <cstdint>

#include "agent/tapd_agent.h"
#include "support/scripted_client.h"
#include "support/wire_peers.h"

namespace tally {

inline constexpr int kIndex = 5;

// The bytes of a value as our codec writes them, and as rpcgen's routines do.
template <class T>
Bytes ours(T value) {
  return encode_bytes(xdr_wire<T>, value);
}
template <class Key, class Theirs = typename Peer<Key>::Type>
Bytes theirs(Theirs value) {
  return encode_bytes<Theirs>(Peer<Key>::xdr, value);
}

struct TypeFacts {
  const char* name;
  std::uint32_t type;
  std::uint32_t key_size;
  std::uint32_t counters;
  const char* delta_null;
  const char* delta_zero;
  const char* rate_null;

  const CollectionOps& ops() const { return agent_type_ops(type); }
};

// By their codes.
inline constexpr TypeFacts kTypeFacts[] = {
    {"host", kHost, 6, 7, "host_calc_delta", "host", "host"},
    {"matrix", kMatrix, 12, 3, "matrix_calc_delta", "matrix", "matrix"},
    {"pdist", kPdist, 8, 2, "pdistcalc_delta2", "pdist", "pdist"},
    {"nlhost", kNlHost, 24, 5, "nlhost_calc_delta2", "nlhost", "nlhost"},
    {"nlmatrix", kNlMatrix, 44, 2, "nlmatrixt_calc_delta", "nlmatrix", "nlmatrixt"},
    {"vlan", kVlan, 4, 4, "pdistcalc_delta2", "host", "vlan"},
    {"prio", kPrio, 4, 2, "pdistcalc_delta", "host", "prio"},
    {"dsstats", kDsStats, 4, 4, "nlhost_calc_delta", "dsstats", "dsstats"},
    {"dspdist", kDsPdist, 8, 2, "nlhost_calc_delta2", "dspdist", "dspdist"},
    {"dshost", kDsHost, 28, 4, "nlhost_calc_delta", "dshost", "dshost"},
    {"dsmatrix", kDsMatrix, 52, 2, "nlhost_calc_delta", "dsmatrix", "dsmatrix"},
};

}  // namespace tally
