// The registry's entry of one agent collection.
#pragma once

#include <cstdint>

namespace tally {

// Flag bits of a collection.
inline constexpr std::uint32_t kPolledInThisPass = 1U << 0;
inline constexpr std::uint32_t kViewed = 1U << 1;

// CollectionRecord is one entry of the list that the registry keeps sorted by next_due. Times are
// whole seconds since the epoch. Every field is guarded by the registry lock; records are freed by
// the main thread only.
struct CollectionRecord {
  CollectionRecord* prev;  // the first record's previous is the list head
  CollectionRecord* next;  // null at the end
  std::int32_t last_viewed;
  std::int32_t last_poll;  // 0: never polled
  std::int32_t next_due;
  std::uint32_t type;
  std::uint32_t index;
  std::uint32_t flags;
};

}  // namespace tally
