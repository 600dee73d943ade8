// Sizes of contents and length fields, without tests and messages. Private to the library: shared
// by the size pass (findlen) and the write pass (bld_pkt).
#pragma once

#include <bit>
#include <cstdint>

#include "snmp/values.h"

namespace tally {

inline constexpr std::int32_t kMaxLength = 0xFFFFFF;  // of a content that is encoded here

// Bytes of content. A two's complement number needs room for its sign bit above its significant
// bits, and an unsigned one needs a bit of 0 there, so both have one byte more than
// floor(significant bits / 8).
constexpr int int_content(std::int32_t value) {
  return std::bit_width(static_cast<std::uint32_t>(value < 0 ? ~value : value)) / 8 + 1;
}

constexpr int uint_content(std::uint64_t value) {
  return static_cast<int>(std::bit_width(value)) / 8 + 1;
}

// length_size returns the bytes of the length field for a content of 0 to 0xFFFFFF bytes.
constexpr std::int16_t length_size(std::int32_t length) {
  return static_cast<std::int16_t>(1 + (length > 0x7F) + (length > 0xFF) + (length > 0xFFFF));
}

// content_of returns the bytes of content in a whole element of `size` (up to 65535) bytes.
constexpr std::int32_t content_of(std::int32_t size) {
  return size - 2 - (size > 0x7F + 2) - (size > 0xFF + 3);
}

// subid_size returns the bytes of a sub-identifier in base 128: 1 to 5.
constexpr int subid_size(std::uint32_t subid) {
  return 1 + (subid > 0x7F) + (subid > 0x3FFF) + (subid > 0x1FFFFF) + (subid > 0xFFFFFFF);
}

// oid_content returns the bytes of an OID's content, or -1 for an OID (or null) that has more
// sub-identifiers than any length here can count.
[[nodiscard]] std::int32_t oid_content(const OID* oid);

// value_size returns the size of a binding's value as an element, or -1 (logs). An illegal type
// counts as empty; the write pass refuses it.
[[nodiscard]] std::int16_t value_size(const VarBind& binding);

}  // namespace tally
