// Row iteration of the types that the agent serves in batches of up to 100 rows.
#pragma once

#include <cstdint>
#include <type_traits>

#include "agent/procedures.h"
#include "agent/progress.h"
#include "daemon/base/log.h"
#include "files/collection_ops.h"

namespace tally {

// What every batch request carries: the most rows that one reply may hold, and a mode word whose
// meaning is the agent's.
inline constexpr std::int32_t kBatchRows = 100;
inline constexpr std::int32_t kBatchMode = 3;

namespace batch {

// end_of_table produces the closing row of a type that has one, or null.
template <class Type>
const unsigned char* end_of_table(RowIterator& rows) {
  if constexpr (requires { Type::closing_row(rows); }) {
    rows.flags |= kClosingRowDone;
    return Type::closing_row(rows) ? rows.record : nullptr;
  } else {
    return nullptr;
  }
}

}  // namespace batch

// batch_getnext is the rpc_getnext operation of such a type, which gives it
//
//   kRowProcedure                 the bulk procedure
//   key_after(index, row)         the key that asks for what follows a row; null: from the start
//   belongs(rows, row)            whether a row is still one of this collection: the agent runs on
//                                 into the next control index
//   fill(row, record)             makes the record of a row
//   closing_row(rows)             optional: makes one more record when the table has ended, which
//                                 an empty first batch or a failed call does not count as
//
// A batch whose last row has the very key that was asked after, or one asked after before, would
// come for ever: it is not used and ends the table.
template <class Type>
const unsigned char* batch_getnext(RowIterator& rows) {
  using List = typename std::remove_cvref_t<decltype(Type::kRowProcedure)>::Result;
  if ((rows.flags & kClosingRowDone) != 0) return nullptr;

  auto* reply = rows.reply.as<List>();
  if (reply && rows.position + 1 < reply->rows.size()) {
    rows.position += 1;
  } else {
    const bool first_batch = reply == nullptr;
    const auto key =
        Type::key_after(rows.control_index, first_batch ? nullptr : &reply->rows.back());
    rows.reply.reset();
    auto batch = Type::kRowProcedure(*rows.client, key);
    if (!batch) {
      log_debug("%s", Type::kTexts.getnext_failed);
      return nullptr;
    }
    const bool ended =
        batch->rows.size() == 0 ||
        (Type::belongs(rows, batch->rows.back()) &&
         !made_progress(rows, key, Type::key_after(rows.control_index, &batch->rows.back())));
    if (ended) {
      batch.reset();
      return first_batch ? nullptr : batch::end_of_table<Type>(rows);
    }
    reply = batch.release();
    rows.reply.reset(reply, [](void* held) { FreeReply()(static_cast<List*>(held)); });
    rows.position = 0;
  }

  const auto& row = reply->rows[rows.position];
  if (!Type::belongs(rows, row)) {
    rows.reply.reset();
    return batch::end_of_table<Type>(rows);
  }
  Type::fill(row, rows.record);
  return rows.record;
}

}  // namespace tally
