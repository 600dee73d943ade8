// What both ways to read a table share: the next key, which rows are a collection's, and whether
// the table comes to its end.
//
// A type gives
//
//   kRowProcedure        the procedure; its key starts with the control index
//   kControlIndex        the member of a row that names its control row
//   kTimeMark            the member with its time mark, in a type whose rows have one
//   go_on(key, row)      completes the key that asks for what follows a row
//   start(key)           optional: completes the first one, when that is not all zeros
#pragma once

#include <bit>
#include <cstdint>
#include <tuple>
#include <type_traits>

#include "agent/procedures.h"
#include "files/collection_ops.h"

namespace tally {

template <class Type>
using RowProcedure = std::remove_cvref_t<decltype(Type::kRowProcedure)>;

// key_after returns the key that asks for what follows a row, or for the start of the table when
// there is none.
template <class Type, class Row>
auto key_after(const RowIterator& rows, const Row* row) {
  typename RowProcedure<Type>::Argument key;
  std::get<0>(key.members(key)) = static_cast<std::int32_t>(rows.control_index);
  if (row) {
    Type::go_on(key, *row);
  } else if constexpr (requires { Type::start(key); }) {
    Type::start(key);
  }
  return key;
}

// belongs tells whether a row is one of this collection. The agent runs on into the next one.
template <class Type, class Row>
bool belongs(const RowIterator& rows, const Row& row) {
  if constexpr (requires { Type::kTimeMark; }) {
    if (row.*Type::kTimeMark != rows.time_mark) return false;
  }
  return static_cast<std::uint32_t>(row.*Type::kControlIndex) == rows.control_index;
}

// made_progress tells whether a reply leads on: `asked` is the key that was asked after and
// `reached` the one that its last row gives to ask after next. False when these are the same, and
// when the agent goes round in a larger circle, which is found by comparing with one key of the
// past that is replaced at every power of two (Brent's method). A correct agent never comes to a
// key twice; whether keys ascend is not looked at, because the agent's order is its own.
template <class Key>
bool made_progress(RowIterator& rows, const Key& asked, const Key& reached) {
  const auto here = [&](const Key& key) { return Key::members(key) == Key::members(reached); };
  Key* milestone = static_cast<Key*>(rows.milestone.get());
  if (here(asked) || (milestone && here(*milestone))) return false;
  rows.replies += 1;
  if (!milestone) {
    rows.milestone = {new Key(reached), [](void* key) { delete static_cast<Key*>(key); }};
  } else if (std::has_single_bit(rows.replies)) {
    *milestone = reached;
  }
  return true;
}

}  // namespace tally
