#include "daemon/supervisor_kinds.h"

#include <algorithm>
#include <limits>

#include "daemon/collection_types.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

// However late a kind is, the main loop serves the pipe for this long before it is polled.
constexpr std::int64_t kShortestTimeout = 2;

SupervisorKind kinds[3] = {
    {kEtherStats,
     etherstats_enabled,
     "etherstats enabled.",
     "etherstats disabled.",
     "etherstats is disabled. VIEW message discarded.",
     {}},
    {kSupVlan,
     supvlan_enabled,
     "supvlanstats enabled.",
     "supvlanstats disabled.",
     "supvlanstats is disabled. VIEW message discarded.",
     {}},
    {kIfStats,
     ifstats_enabled,
     "Ifstats enabled.",
     "Ifstats disabled.",
     "Ifstats is disabled. VIEW message discarded.",
     {}},
};

}  // namespace

void SupervisorKind::initialise() {
  if (hooks.initialise) hooks.initialise(schedule);
}

void SupervisorKind::refresh_rows() {
  if (hooks.refresh_rows) row_count = hooks.refresh_rows(schedule);
}

void SupervisorKind::poll(std::int32_t now, std::int32_t previous_poll) const {
  if (hooks.poll) hooks.poll(now, previous_poll);
}

void SupervisorKind::clean_up() const {
  if (hooks.clean_up) hooks.clean_up();
}

std::span<SupervisorKind, 3> supervisor_kinds() {
  return kinds;
}

SupervisorKind& supervisor_kind(std::uint32_t type) {
  return kinds[type - kEtherStats];
}

std::optional<std::int32_t> next_timeout(std::span<const SupervisorKind> of, std::int32_t now) {
  std::optional<std::int32_t> earliest;
  for (const SupervisorKind& kind : of) {
    if (kind.row_count == 0 || !kind.enabled) continue;
    if (!earliest || kind.schedule.next_due < *earliest) earliest = kind.schedule.next_due;
  }
  if (!earliest) return std::nullopt;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      std::int64_t{*earliest} - now, kShortestTimeout, std::numeric_limits<std::int32_t>::max()));
}

void poll_due_kinds(std::span<SupervisorKind> of, std::int32_t now, std::int32_t interval) {
  for (SupervisorKind& kind : of) {
    if (!kind.enabled || now < kind.schedule.next_due) continue;
    const std::int32_t previous_poll = kind.schedule.last_poll;
    plan_next_poll(kind.schedule, now, interval);
    kind.refresh_rows();
    kind.poll(now, previous_poll);
  }
}

}  // namespace tally
