#include "minitapd/key_layout.h"

#include <algorithm>
#include <limits>
#include <string>

namespace minitapd {

namespace {

// put_ascending returns false for a number that is too large: it sorts behind every row.
bool put_ascending(std::int64_t number, std::span<std::uint8_t> out) {
  for (std::size_t at = out.size(); at-- > 0; number >>= 8) {
    out[at] = static_cast<std::uint8_t>(number);
  }
  return number == 0;
}

bool put_address(const std::string& address, std::span<std::uint8_t> out) {
  const std::size_t kept = std::min(address.size(), out.size());
  std::fill(std::copy_n(address.begin(), kept, out.begin()), out.end(), std::uint8_t{0});
  return std::all_of(address.begin() + static_cast<std::ptrdiff_t>(kept), address.end(),
                     [](char byte) { return byte == 0; });
}

}  // namespace

bool encode_key(std::span<const KeyField> layout, const Key& key, std::span<std::uint8_t> bytes) {
  const auto behind = [](std::span<std::uint8_t> rest) {
    std::ranges::fill(rest, std::uint8_t{0xff});
    return false;
  };
  bool exact = true;
  for (const KeyField& field : layout) {
    const auto out = bytes.first(field.width);
    const auto rest = bytes.subspan(field.width);
    switch (field.part) {
      case KeyPart::ascending:
        if (!put_ascending(key.numbers[field.slot], out)) return behind(bytes);
        break;
      case KeyPart::little_endian:
      case KeyPart::length: {
        const auto number = field.part == KeyPart::length
                                ? static_cast<std::int64_t>(key.addresses[field.slot].size())
                                : key.numbers[field.slot];
        out[0] = static_cast<std::uint8_t>(number);
        // All rows with this byte first have zeros behind it.
        if (number > 0xff) return behind(rest);
        break;
      }
      case KeyPart::address:
        if (!put_address(key.addresses[field.slot], out)) exact = false;
        break;
    }
    bytes = rest;
  }
  return exact;
}

void decode_key(std::span<const KeyField> layout, std::span<const std::uint8_t> bytes, Key& key) {
  constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();
  std::size_t length = kWhole;  // of the next address
  for (const KeyField& field : layout) {
    const auto in = bytes.first(field.width);
    bytes = bytes.subspan(field.width);
    if (field.part == KeyPart::address) {
      const std::size_t size = std::min<std::size_t>(length, in.size());
      key.addresses[field.slot].assign(reinterpret_cast<const char*>(in.data()), size);
      length = kWhole;
      continue;
    }
    std::int64_t number = 0;
    for (const std::uint8_t byte : in) number = number << 8 | byte;
    if (field.part == KeyPart::length) {
      length = static_cast<std::size_t>(number);
    } else {
      key.numbers[field.slot] = number;
    }
  }
}

}  // namespace minitapd
