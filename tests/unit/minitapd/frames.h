// Frames written out as hexadecimal text, so that a test shows what is on the wire.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace minitapd::testing {

using Frame = std::vector<std::uint8_t>;

// bytes turns "08 00 45" into bytes; blanks are free.
inline Frame bytes(std::string_view hex) {
  Frame out;
  std::string digits;
  for (const char c : hex) {
    if (c == ' ' || c == '\n') continue;
    digits += c;
    if (digits.size() < 2) continue;
    out.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
    digits.clear();
  }
  return out;
}

// ethernet puts a header before a payload.
inline Frame ethernet(std::string_view dest, std::string_view source, std::string_view rest) {
  return bytes(std::string(dest) + " " + std::string(source) + " " + std::string(rest));
}

inline constexpr std::string_view kStationA = "02 00 00 00 00 0a";
inline constexpr std::string_view kStationB = "02 00 00 00 00 0b";

}  // namespace minitapd::testing
