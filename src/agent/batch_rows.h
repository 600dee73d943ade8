// Row iteration of the types that the agent serves in batches of up to 100 rows.
#pragma once

#include "agent/table_walk.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"

namespace tally {

// end_of_table produces the closing row of a type that has one, or null.
template <class Type>
const unsigned char* end_of_table(RowIterator& rows) {
  if constexpr (requires { Type::closing_row(rows); }) {
    rows.flags |= kClosingRowDone;
    if (Type::closing_row(rows)) return rows.record;
  }
  return nullptr;
}

// batch_getnext is the rpc_getnext operation of such a type, which gives it, beside what
// table_walk.h needs,
//
//   fill(row, record)             makes the record of a row
//   closing_row(rows)             optional: makes one more record when the table has ended, which
//                                 an empty first batch or a failed call does not count as
//
// A batch whose last row has the very key that was asked after, or one asked after before, would
// come for ever: it is not used and ends the table.
template <class Type>
const unsigned char* batch_getnext(RowIterator& rows) {
  using List = typename RowProcedure<Type>::Result;
  if ((rows.flags & kClosingRowDone) != 0) return nullptr;

  auto* reply = static_cast<List*>(rows.reply.get());
  if (reply && rows.position + 1 < reply->rows.size()) {
    rows.position += 1;
  } else {
    const bool first_batch = reply == nullptr;
    const auto key = key_after<Type>(rows, first_batch ? nullptr : &reply->rows.back());
    rows.reply.reset();
    auto batch = Type::kRowProcedure(*rows.client, key);
    if (!batch) {
      if (!stopping()) log_debug("%s", Type::kTexts.getnext_failed);
      return nullptr;
    }
    const bool ended = batch->rows.size() == 0 ||
                       (belongs<Type>(rows, batch->rows.back()) &&
                        !made_progress(rows, key, key_after<Type>(rows, &batch->rows.back())));
    if (ended) {
      batch.reset();
      return first_batch ? nullptr : end_of_table<Type>(rows);
    }
    reply = batch.release();
    rows.reply = {reply, [](void* held) { FreeReply()(static_cast<List*>(held)); }};
    rows.position = 0;
  }

  const auto& row = reply->rows[rows.position];
  if (!belongs<Type>(rows, row)) {
    rows.reply.reset();
    return end_of_table<Type>(rows);
  }
  Type::fill(row, rows.record);
  return rows.record;
}

}  // namespace tally
