// The three supervisor kinds, their state and their hooks. Each has exactly one collection.
//
// Everything here belongs to the main thread; nothing is locked.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "daemon/base/schedule.h"

namespace tally {

// KindHooks is what a kind does.
struct KindHooks {
  void (*initialise)(Schedule& schedule);
  std::uint32_t (*refresh_rows)(Schedule& schedule);          // returns how many there are now
  int (*poll)(std::int32_t now, std::int32_t previous_poll);  // writes the delta file: 1 or 0
  void (*clean_up)();                                         // forgets all rows
};

struct SupervisorKind {
  std::uint32_t type;
  bool& enabled;
  const char* enabled_text;
  const char* disabled_text;
  const char* view_discarded_text;
  KindHooks hooks;

  Schedule schedule = {};
  std::uint32_t row_count = 0;  // a kind without rows never becomes due

  void initialise();
  void refresh_rows();
  void poll(std::int32_t now, std::int32_t previous_poll) const;
  void poll_at_once();  // and records it, unless the last poll was this same second
  void clean_up();
};

// supervisor_kinds returns the three kinds: etherstats, supvlan, ifstats, always in this order.
std::span<SupervisorKind, 3> supervisor_kinds();

// supervisor_kind returns the kind of a type that is_supervisor_type.
SupervisorKind& supervisor_kind(std::uint32_t type);

// next_timeout returns how many seconds the main loop may wait, at least 2, before a kind is due;
// nothing when no kind is enabled and has rows.
std::optional<std::int32_t> next_timeout(std::span<const SupervisorKind> kinds, std::int32_t now);

// poll_due_kinds polls every enabled kind that is due at `now`.
void poll_due_kinds(std::span<SupervisorKind> kinds, std::int32_t now, std::int32_t interval);

}  // namespace tally
