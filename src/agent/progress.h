// Does a table come to its end?
#pragma once

#include <bit>

#include "files/collection_ops.h"

namespace tally {

// made_progress tells whether a reply leads on: `asked` is the key that was asked after and
// `reached` the one that its last row gives to ask after next. False when these are the same, and
// when the agent goes round in a larger circle, which is found by comparing with one key of the
// past that is replaced at every power of two (Brent's method). A correct agent never comes to a
// key twice; whether keys ascend is not looked at, because the agent's order is its own.
template <class Key>
bool made_progress(RowIterator& rows, const Key& asked, const Key& reached) {
  Key* milestone = rows.milestone.as<Key>();
  if (reached == asked || (milestone && reached == *milestone)) return false;
  rows.replies += 1;
  if (!milestone) {
    rows.milestone.reset(new Key(reached), [](void* key) { delete static_cast<Key*>(key); });
  } else if (std::has_single_bit(rows.replies)) {
    *milestone = reached;
  }
  return true;
}

}  // namespace tally
