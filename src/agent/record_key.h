// Keys of records: how they are written and how they are ordered. Records lie at any alignment.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "agent/byte_list.h"

namespace tally {

// put_address writes an address into a field of kSize bytes: cut when it is longer, filled with
// zeros when it is shorter.
template <std::uint32_t kSize>
void put_address(unsigned char* field, const ByteList& address) {
  if (address.size() >= kSize) {
    std::memcpy(field, address.bytes().data(), kSize);
    return;
  }
  std::memset(field, 0, kSize);
  const auto bytes = address.bytes();
  std::copy(bytes.begin(), bytes.end(), field);
}

// put_words writes 32-bit words in the host's byte order.
template <class... Word>
void put_words(unsigned char* field, Word... words) {
  const std::uint32_t values[] = {words...};
  std::memcpy(field, values, sizeof values);
}

// compare_bytes orders two keys byte by byte, as unsigned numbers: -1, 0 or 1.
template <std::uint32_t kSize>
int compare_bytes(const unsigned char* a, const unsigned char* b) {
  const int order = std::memcmp(a, b, kSize);
  return (order > 0) - (order < 0);
}

// compare_words orders two keys that are one 32-bit word, as unsigned numbers: -1, 0 or 1.
inline int compare_words(const unsigned char* a, const unsigned char* b) {
  std::uint32_t left;
  std::uint32_t right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return (left > right) - (left < right);
}

}  // namespace tally
