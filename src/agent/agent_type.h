// What an agent collection type is, as data, and the operations that come from it.
//
// A type is a struct with static members: see the families in mac_types, network_types, smon_types
// and dsmon_types. It names
//
//   kKeySize, kCounters          bytes of the key, number of doubles that follow it
//   kTexts                       its log texts (kept as the system has them, also where one type
//                                uses the name of another)
//   compare(a, b)                the order of two records by their keys
//   kType, kControlProcedure     whose rows are adopted; a type without them adopts nothing
//   adopts(row)                  optional: which of these rows, when valid_and_ours is not the rule
//   kRowProcedure, ...           what batch_rows.h or single_rows.h needs
//
// and collection_ops<Type>() is then its line in the table of operations.
#pragma once

#include <cstdint>
#include <cstring>

#include "agent/batch_rows.h"
#include "agent/control_scan.h"
#include "agent/rate.h"
#include "agent/single_rows.h"
#include "daemon/base/log.h"
#include "files/collection_ops.h"

namespace tally {

struct AgentTexts {
  const char* delta_null;
  const char* delta_zero_interval;
  const char* rate_null;
  const char* rate_zero_interval;
  const char* getnext_failed;
  const char* upload_failed;
  const char* add_failed;
};

template <class Type>
inline constexpr std::uint32_t kRecordSize = Type::kKeySize + 8 * Type::kCounters;

// put_counters writes counters after the key, each rounded once from 64 bits.
template <std::uint32_t kKeySize, class... Counter>
void put_counters(unsigned char* record, Counter... counters) {
  const double values[] = {static_cast<double>(counters)...};
  std::memcpy(record + kKeySize, values, sizeof values);
}

namespace agent_ops {

// divisor returns the interval to divide by; 0 is taken as 1.
inline std::uint32_t divisor(std::uint32_t interval, const char* zero_interval_text) {
  if (interval != 0) return interval;
  log_debug("%s", zero_interval_text);
  return 1;
}

template <class Type>
int calc_delta(const unsigned char* prev, const unsigned char* last, unsigned char* out,
               std::uint32_t interval) {
  if (!prev || !last || !out) {
    log_warning("%s", Type::kTexts.delta_null);
    return -1;
  }
  const std::uint32_t seconds = divisor(interval, Type::kTexts.delta_zero_interval);
  const bool changed = rates_between<Type::kCounters>(prev + Type::kKeySize, last + Type::kKeySize,
                                                      out + Type::kKeySize, seconds);
  std::memcpy(out, last, Type::kKeySize);
  return changed ? 1 : 0;
}

template <class Type>
int calc_rate(const unsigned char* last, unsigned char* out, std::uint32_t interval) {
  if (!last || !out) {
    log_warning("%s", Type::kTexts.rate_null);
    return 0;
  }
  const std::uint32_t seconds = divisor(interval, Type::kTexts.rate_zero_interval);
  double rates[Type::kCounters];
  std::memcpy(rates, last + Type::kKeySize, sizeof rates);
  rates_of_new(rates, seconds);
  std::memcpy(out, last, Type::kKeySize);
  std::memcpy(out + Type::kKeySize, rates, sizeof rates);
  return 1;
}

// rpc_getnext: a procedure returns a list of rows, or one.
template <class Type>
const unsigned char* rpc_getnext(RowIterator& rows) {
  if constexpr (requires(typename RowProcedure<Type>::Result reply) { reply.rows; }) {
    return batch_getnext<Type>(rows);
  } else {
    return single_getnext<Type>(rows);
  }
}

template <class Type>
int upload(AgentClient& client, RecordCache& cache, std::uint32_t /*index*/,
           const CollectionRecord& collection) {
  RowIterator rows;
  rows.control_index = collection.index;
  rows.client = &client;
  while (const unsigned char* record = rpc_getnext<Type>(rows)) {
    if (!filebuf_put(cache, record, kRecordSize<Type>)) {
      log_debug("%s", Type::kTexts.upload_failed);
      return 0;
    }
  }
  return 1;
}

}  // namespace agent_ops

// collection_ops returns the operations of a type.
template <class Type>
constexpr CollectionOps collection_ops() {
  static_assert(kRecordSize<Type> <= kMaxRecordSize);
  CollectionOps ops{kRecordSize<Type>,           agent_ops::upload<Type>,    Type::compare,
                    agent_ops::calc_delta<Type>, agent_ops::calc_rate<Type>, nullptr,
                    agent_ops::rpc_getnext<Type>};
  if constexpr (requires { Type::kControlProcedure; }) ops.add_active = scan_control_rows<Type>;
  return ops;
}

}  // namespace tally
