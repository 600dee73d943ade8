// Keys of records: how they are written and how they are ordered. Records lie at any alignment.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "agent/byte_list.h"

namespace tally {

// put_address writes an address into a field of kSize bytes: cut when it is longer, filled with
// zeros when it is shorter.
template <std::uint32_t kSize>
void put_address(unsigned char* field, const ByteList& address) {
  static_assert(kSize <= ByteList::kInPlace);
  std::memcpy(field, address.padded(), kSize);
}

// put_words writes 32-bit words, signed or not, in the host's byte order.
template <class... Word>
void put_words(unsigned char* field, Word... words) {
  const std::uint32_t values[] = {static_cast<std::uint32_t>(words)...};
  std::memcpy(field, values, sizeof values);
}

// compare_bytes orders two keys byte by byte, as unsigned numbers: -1, 0 or 1. Keys are short and
// every row of every poll is compared, so the bytes are taken as big-endian words in place of a
// call of memcmp.
template <std::uint32_t kSize>
int compare_bytes(const unsigned char* a, const unsigned char* b) {
  using Word = std::conditional_t<(kSize >= 8), std::uint64_t,
                                  std::conditional_t<(kSize >= 4), std::uint32_t, std::uint16_t>>;
  static_assert(kSize % 2 == 0);
  Word left;
  Word right;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  if (left != right) return __builtin_bswap64(left) < __builtin_bswap64(right) ? -1 : 1;
  if constexpr (kSize > sizeof(Word)) {
    return compare_bytes<kSize - sizeof(Word)>(a + sizeof(Word), b + sizeof(Word));
  }
  return 0;
}

// compare_words orders two keys by kWords 32-bit words from word kFirst on, as unsigned numbers:
// -1, 0 or 1.
template <std::uint32_t kWords, std::uint32_t kFirst = 0>
int compare_words(const unsigned char* a, const unsigned char* b) {
  for (std::uint32_t i = kFirst; i < kFirst + kWords; ++i) {
    std::uint32_t left;
    std::uint32_t right;
    std::memcpy(&left, a + 4 * i, sizeof left);
    std::memcpy(&right, b + 4 * i, sizeof right);
    if (left != right) return left < right ? -1 : 1;
  }
  return 0;
}

}  // namespace tally
