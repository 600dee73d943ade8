// Big-endian integers at the front of a byte range, for the canned agent.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace tally::bench {

// Each put_ writes at `to` and returns the place behind it.
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

// WireCursor takes values from the front of a range. Once the range has been too short, ok() is
// false and every value is 0.
class WireCursor {
 public:
  explicit WireCursor(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool ok() const { return ok_; }
  std::span<const std::uint8_t> rest() const { return bytes_; }

  std::uint32_t u32() {
    if (!has(4)) return 0;
    const std::uint32_t value = load_u32(bytes_.data());
    bytes_ = bytes_.subspan(4);
    return value;
  }

  void skip(std::uint32_t length) {
    if (has(length)) bytes_ = bytes_.subspan(length);
  }

 private:
  bool has(std::uint32_t length) {
    ok_ = ok_ && length <= bytes_.size();
    return ok_;
  }

  std::span<const std::uint8_t> bytes_;
  bool ok_ = true;
};

}  // namespace tally::bench
