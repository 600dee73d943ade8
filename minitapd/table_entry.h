// What the two kinds of counter tables (aging_table.h, dense_table.h) have in common.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace minitapd {

template <std::size_t kCounters>
struct TableEntry {
  std::array<std::uint64_t, kCounters> counters{};
  std::uint32_t ordinal = 0;  // the first row ever is 1; 0 = no row
  std::uint32_t created = 0;  // up-time
};

// What control rows tell about a table.
struct TableUse {
  std::size_t rows = 0;
  std::uint32_t inserts = 0;
  std::uint32_t deletes = 0;
  std::uint32_t last_delete = 0;  // up-time when a row last had to leave; 0 = never
};

}  // namespace minitapd
