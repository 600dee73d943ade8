// Counters indexed by a small number.
//
// For tables whose possible keys are few: protocols, priorities, VLANs, DSCPs. The key is the
// number's bytes, highest first. The interface is AgingTable's, but rows are never
// dropped.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "minitapd/table_entry.h"

namespace minitapd {

template <std::size_t kKeyBytes, std::size_t kNumbers, std::size_t kCounters>
class DenseTable {
 public:
  using Key = std::array<std::uint8_t, kKeyBytes>;
  using Entry = TableEntry<kCounters>;

  // There are kNumbers rows at most, whatever the bound of other tables.
  explicit DenseTable(std::size_t /*max_rows*/) {}

  // touch finds or makes the row of a key below kNumbers.
  Entry& touch(const Key& key, std::uint32_t now) {
    Entry& entry = entries_[number_of(key)];
    if (entry.ordinal == 0) {
      entry.ordinal = ++inserts_;
      entry.created = now;
    }
    return entry;
  }

  Entry* find(const Key& key) {
    const std::size_t number = number_of(key);
    return number < kNumbers && entries_[number].ordinal != 0 ? &entries_[number] : nullptr;
  }

  template <class Visit>
  void for_each_after(const Key* start, std::size_t limit, Visit visit) const {
    std::size_t number = start == nullptr ? 0 : number_of(*start) + 1;
    for (; limit > 0 && number < kNumbers; ++number) {
      if (entries_[number].ordinal == 0) continue;
      visit(key_of(number), entries_[number]);
      --limit;
    }
  }

  [[nodiscard]] TableUse use() const { return {.rows = inserts_, .inserts = inserts_}; }

 private:
  static std::size_t number_of(const Key& key) {
    std::size_t number = 0;
    for (const std::uint8_t byte : key) number = number << 8 | byte;
    return number;
  }
  static Key key_of(std::size_t number) {
    Key key{};
    for (std::size_t at = kKeyBytes; at-- > 0; number >>= 8) {
      key[at] = static_cast<std::uint8_t>(number);
    }
    return key;
  }

  std::vector<Entry> entries_ = std::vector<Entry>(kNumbers);
  std::uint32_t inserts_ = 0;
};

}  // namespace minitapd
