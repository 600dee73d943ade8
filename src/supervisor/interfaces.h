// What the kinds know of the switch's interfaces (IF-MIB, RFC 2863).
#pragma once

#include <cstdint>
#include <string_view>

namespace tally {

// InterfaceName is the first 16 bytes of an ifName, as the collection files hold it: bytes, not
// text, padded with zeros.
struct InterfaceName {
  std::uint32_t length;
  char bytes[16];

  static InterfaceName of(std::string_view name) {
    InterfaceName start = {};
    start.length = static_cast<std::uint32_t>(name.copy(start.bytes, sizeof start.bytes));
    return start;
  }
  std::string_view view() const { return {bytes, length}; }
};

// is_not_up tells whether an ifOperStatus says that the interface passes no traffic. Testing and
// unknown count as up.
constexpr bool is_not_up(std::uint32_t oper_status) {
  enum : std::uint32_t { down = 2, dormant = 5, not_present = 6, lower_layer_down = 7 };
  return oper_status == down || oper_status == dormant || oper_status == not_present ||
         oper_status == lower_layer_down;
}

}  // namespace tally
