// Row iteration of the types that the agent serves one row a call.
#pragma once

#include "agent/table_walk.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"

namespace tally {

// single_getnext is the rpc_getnext operation of such a type, which gives it, beside what
// table_walk.h needs,
//
//   fill(row, record)         makes the record of a row
//   exact_first(key)          optional: turns the first key into one that asks for a row by its own
//                             key; when that row is not there, the next one is asked for
//
// The next key is made from the reply, which is kept for it: the record holds less than the whole
// address of a DSMON row. A row with the very key that was asked after, or one asked after before,
// would come for ever: it is not used and ends the table. (A row that was asked for by its own key
// does not count as one.)
template <class Type>
const unsigned char* single_getnext(RowIterator& rows) {
  using Row = typename RowProcedure<Type>::Result;
  const auto* previous = static_cast<const Row*>(rows.reply.get());
  auto key = key_after<Type>(rows, previous);
  const auto following_key = key;
  bool retry = false;
  if constexpr (requires { Type::exact_first(key); }) {
    retry = previous == nullptr;
    if (retry) Type::exact_first(key);
  }
  rows.reply.reset();

  auto row = Type::kRowProcedure(*rows.client, key);
  if (retry && row && row->status != 0) {
    key = following_key;
    row.reset();
    row = Type::kRowProcedure(*rows.client, key);
  }
  if (!row) {
    if (!stopping()) log_debug("%s", Type::kTexts.getnext_failed);
    return nullptr;
  }
  if (row->status != 0 || !belongs<Type>(rows, *row) ||
      !made_progress(rows, key, key_after<Type>(rows, row.get()))) {
    return nullptr;
  }
  Type::fill(*row, rows.record);
  rows.reply = {row.release(), [](void* held) { FreeReply()(static_cast<Row*>(held)); }};
  return rows.record;
}

}  // namespace tally
