// Row iteration of the types that the agent serves one row a call.
#pragma once

#include <cstdint>
#include <type_traits>

#include "agent/control_scan.h"
#include "agent/procedures.h"
#include "agent/progress.h"
#include "daemon/base/log.h"
#include "files/collection_ops.h"

namespace tally {

// single_getnext is the rpc_getnext operation of such a type, which gives it
//
//   kRowProcedure             the procedure; its key ends with a request, its reply starts with a
//                             status
//   key_after(index, row)     the key that asks for the row behind another; null: for the first
//   exact_first_key(index)    optional: asked for in place of the first row; when there is no such
//                             row, the first one behind it is
//   belongs(rows, row)        whether a row is one of this collection
//   fill(row, record)         makes the record of a row
//
// The next key is made from the reply, which is kept for it: the record holds less than the whole
// address of a DSMON row. A row with the very key that was asked after, or one asked after before,
// would come for ever: it is not used and ends the table. (A row that was asked for by its own key
// is no such row.)
template <class Type>
const unsigned char* single_getnext(RowIterator& rows) {
  using Row = typename std::remove_cvref_t<decltype(Type::kRowProcedure)>::Result;
  const auto* previous = rows.reply.as<const Row>();
  auto key = Type::key_after(rows.control_index, previous);
  const auto following_key = key;
  bool retry = false;
  if constexpr (requires { Type::exact_first_key(rows.control_index); }) {
    retry = previous == nullptr;
    if (retry) key = Type::exact_first_key(rows.control_index);
  }
  rows.reply.reset();

  auto row = Type::kRowProcedure(*rows.client, key);
  if (retry && row && row->status != 0) {
    key = following_key;
    row.reset();
    row = Type::kRowProcedure(*rows.client, key);
  }
  if (!row) {
    log_debug("%s", Type::kTexts.getnext_failed);
    return nullptr;
  }
  if (row->status != 0 || !Type::belongs(rows, *row) ||
      !made_progress(rows, key, Type::key_after(rows.control_index, row.get()))) {
    return nullptr;
  }
  Type::fill(*row, rows.record);
  rows.reply.reset(row.release(), [](void* held) { FreeReply()(static_cast<Row*>(held)); });
  return rows.record;
}

}  // namespace tally
