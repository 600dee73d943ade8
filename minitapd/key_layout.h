// How a row's key stands in the bytes that a counting table sorts by.
//
// Clients merge the rows of two polls, so rows must come in the order that clients sort by. They
// compare some keys as numbers and others as the bytes of a packed little-endian record. Either
// order is that of the bytes that a layout describes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "minitapd/tables.h"

namespace minitapd {

enum class KeyPart : std::uint8_t {
  ascending,      // a number, highest byte first: numeric order
  little_endian,  // a number that compares by its little-endian bytes. Rows have values below 256,
                  // so one byte is kept
  length,         // of the address in `slot`, as little_endian
  address         // its bytes, then zeros
};

struct KeyField {
  KeyPart part;
  std::uint8_t slot;  // which of the numbers or addresses of Key
  std::uint8_t width = 1;
};

// encode_key writes a key that a client asks for. If no row can have that key, the bytes sort
// behind all rows before it, and the result is false.
bool encode_key(std::span<const KeyField> layout, const Key& key, std::span<std::uint8_t> bytes);

// decode_key reads the key of a row. An address is cut to the length that stands before it.
void decode_key(std::span<const KeyField> layout, std::span<const std::uint8_t> bytes, Key& key);

}  // namespace minitapd
