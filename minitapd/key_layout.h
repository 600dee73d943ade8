// How a row's key stands in the bytes that a counting table sorts by.
//
// Clients merge the rows of two polls, so rows have to come in the order that they compare by. They
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

// encode_key writes a key that a client asks for. Where no row can have such a key, the bytes stand
// behind all rows that sort before it, and the result is false.
bool encode_key(std::span<const KeyField> layout, const Key& key, std::span<std::uint8_t> bytes);

// decode_key reads the key of a row. An address behind its length is cut to it.
void decode_key(std::span<const KeyField> layout, std::span<const std::uint8_t> bytes, Key& key);

}  // namespace minitapd
