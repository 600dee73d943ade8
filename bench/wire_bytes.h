// Big-endian integers (RFC 4506) in buffers that have room for them.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace tally::bench {

// Each put_ writes at `to` and returns the place behind what it wrote.
inline std::uint8_t* put_u32(std::uint8_t* to, std::uint32_t value) {
  value = __builtin_bswap32(value);
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}
inline std::uint8_t* put_u64(std::uint8_t* to, std::uint64_t value) {
  value = __builtin_bswap64(value);
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}
inline std::uint8_t* put_words(std::uint8_t* to, std::initializer_list<std::uint32_t> words) {
  for (const std::uint32_t word : words) to = put_u32(to, word);
  return to;
}

inline std::uint32_t load_u32(const std::uint8_t* from) {
  std::uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return __builtin_bswap32(value);
}
inline std::uint64_t load_u64(const std::uint8_t* from) {
  std::uint64_t value;
  std::memcpy(&value, from, sizeof value);
  return __builtin_bswap64(value);
}

}  // namespace tally::bench
