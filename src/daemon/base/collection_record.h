// The registry's entry of one agent collection.
#pragma once

#include <cstdint>

#include "daemon/base/schedule.h"

namespace tally {

// CollectionRecord is one entry of the list that the registry keeps sorted by next_due. Every
// field is guarded by the registry lock; records are freed by the main thread only.
struct CollectionRecord {
  Schedule schedule;
  std::uint32_t type = 0;
  std::uint32_t index = 0;
};

}  // namespace tally
