// Every agent collection type as the tests see it: rows that follow from a number, the records and
// requests that belong to them, and what the type says in the log.
//
// Row n has a key of its own and counters of all 64 bits. Requests are encoded by rpcgen's
// routines. Two dshost or dsmatrix rows differ only behind the 16 address bytes that a record
// keeps.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "agent/byte_list.h"
#include "files/collection_ops.h"
#include "support/scripted_client.h"
#include "support/wire_peers.h"

namespace tally {

inline constexpr int kIndex = 5;
inline constexpr int kForeign = 6;

template <class T>
Bytes ours(T value) {
  return encode_bytes(xdr_wire<T>, value);
}
template <class Key, class Theirs = typename Peer<Key>::Type>
Bytes theirs(Theirs value) {
  return encode_bytes<Theirs>(Peer<Key>::xdr, value);
}

ByteList byte_list(const std::string& bytes);
tapd_bytes wire_bytes(const std::string& bytes);  // points into its argument
std::string mac_address(std::uint32_t n);
std::string doubles(std::initializer_list<double> values);

// Rows first to first + count - 1 of one control index.
struct Run {
  int index;
  std::uint32_t first;
  std::uint32_t count;
  std::uint32_t time_mark = 0;
};
using Batch = std::vector<Run>;

struct TypeSample {
  const char* name;
  std::uint32_t type;
  std::uint32_t key_size;
  std::uint32_t counters;
  bool batched;    // rows come in lists, not one a call
  bool time_mark;  // rows carry one

  const char* delta_null;
  const char* delta_zero;
  const char* rate_null;
  const char* rate_zero;
  const char* getnext_failed;
  const char* upload_failed;
  const char* add_failed;  // null: never adopted

  // reply makes the answer to a row call; of a type that is not batched, from the batch's first
  // row. An empty batch says that there are no more rows.
  Bytes (*reply)(const Batch& batch);
  std::string (*key)(std::uint32_t n);
  // request returns the call that asks for what follows row n; -1: for the start.
  ScriptedClient::Call (*request)(int n);

  const CollectionOps& ops() const;
  std::string record(std::uint32_t n) const;
};

// type_samples returns one sample for each type, in the order of their codes.
std::span<const TypeSample> type_samples();

// records_of reads an iterator of collection kIndex to its end, or until there are `most`.
std::vector<std::string> records_of(const TypeSample& sample, RowIterator& rows, std::size_t most);

}  // namespace tally
