// What fuzz targets demand of their input, and how they take it apart.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

// demand ends the process if a property does not hold, in every build type: libFuzzer keeps the
// input, and the replay names the file.
inline void demand(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "property does not hold: %s\n", property);
  std::abort();
}

using Span = std::span<const std::uint8_t>;

// take takes so many bytes off the input, or what is left.
inline Span take(Span& input, std::size_t size) {
  const Span taken = input.first(std::min(size, input.size()));
  input = input.subspan(taken.size());
  return taken;
}

// take_word takes 16 bits, the low byte first; 0 when there are fewer.
inline std::size_t take_word(Span& input) {
  const Span word = take(input, 2);
  return word.size() < 2 ? 0 : word[0] | std::size_t{word[1]} << 8;
}
