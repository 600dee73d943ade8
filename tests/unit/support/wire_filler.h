// Random values of any wire type, made from its list of members.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <random>
#include <tuple>
#include <type_traits>

#include "agent/xdr_codec.h"

namespace tally {

class WireFiller {
 public:
  explicit WireFiller(unsigned seed, std::uint32_t least_rows = 0, std::uint32_t most_rows = 4,
                      std::uint32_t longest_bytes = 60)
      : random_(seed),
        least_rows_(least_rows),
        most_rows_(most_rows),
        longest_bytes_(longest_bytes) {}

  template <WireStruct T>
  void fill(T& value) {
    std::apply([&](auto&... member) { (fill(member), ...); }, T::members(value));
  }

 private:
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

  void fill(std::integral auto& value) {
    value = static_cast<std::remove_cvref_t<decltype(value)>>(random_());
  }
  template <class T, std::size_t kCount>
  void fill(std::array<T, kCount>& values) {
    for (T& value : values) fill(value);
  }
  void fill(ByteList& value) {
    static constexpr std::uint32_t kLengths[] = {0, 1, 4, 5, 6, 6, 6, 7, 16, 17, 20, 21, 60};
    const std::uint32_t length = std::min(kLengths[below(std::size(kLengths))], longest_bytes_);
    std::uint8_t* bytes = value.resize(length);
    for (std::uint32_t i = 0; i < length; ++i) fill(bytes[i]);
  }
  // Without zeros, which end a string on rpcgen's side.
  void fill(WireString& value) {
    value.length = below(3) == 0 ? WireString::kMost - below(4) : below(20);
    for (std::uint32_t i = 0; i < value.length; ++i) {
      value.text[i] = static_cast<char>(1 + below(255));
    }
  }
  template <class Row>
  void fill(WireRows<Row>& list) {
    list.release();
    const std::uint32_t rows = least_rows_ + below(most_rows_ - least_rows_ + 1);
    for (std::uint32_t i = 0; i < rows; ++i) fill(list.next_row());
  }

  std::mt19937_64 random_;
  std::uint32_t least_rows_;
  std::uint32_t most_rows_;
  std::uint32_t longest_bytes_;
};

}  // namespace tally
