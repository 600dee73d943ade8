#include "daemon/supervisor_kinds.h"

#include <algorithm>
#include <limits>

#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"
#include "supervisor/etherstats.h"
#include "supervisor/ifstats.h"
#include "supervisor/supclient.h"
#include "supervisor/supvlan.h"

namespace tally {
namespace {

// Seconds for which the main loop serves the pipe before it polls a kind, however late that is.
constexpr std::int64_t kShortestTimeout = 2;

SupervisorKind kinds[3] = {
    {kEtherStats,
     etherstats_enabled,
     "etherstats enabled.",
     "etherstats disabled.",
     "etherstats is disabled. VIEW message discarded.",
     {reset_etherstats, refresh_etherstats_rows, poll_etherstats, clear_etherstats_rows}},
    {kSupVlan,
     supvlan_enabled,
     "supvlanstats enabled.",
     "supvlanstats disabled.",
     "supvlanstats is disabled. VIEW message discarded.",
     {reset_supvlan, refresh_supvlan_rows, poll_supvlan, clear_supvlan_rows}},
    {kIfStats,
     ifstats_enabled,
     "Ifstats enabled.",
     "Ifstats disabled.",
     "Ifstats is disabled. VIEW message discarded.",
     {reset_ifstats, refresh_ifstats_rows, poll_ifstats, clear_ifstats_rows}},
};

}  // namespace

void SupervisorKind::initialise() {
  hooks.initialise(schedule);
  row_count = 0;
}

void SupervisorKind::refresh_rows() {
  row_count = hooks.refresh_rows(schedule);
}

// A failed poll has logged, and put the old sample back.
void SupervisorKind::poll(std::int32_t now, std::int32_t previous_poll) const {
  (void)hooks.poll(now, previous_poll);
}

void SupervisorKind::poll_at_once() {
  const std::int32_t now = schedule_seconds();
  const std::int32_t previous_poll = schedule.last_poll;
  poll(now, previous_poll);
  if (seconds_between(previous_poll, now) >= 1) schedule.last_poll = now;
}

void SupervisorKind::clean_up() {
  hooks.clean_up();
  row_count = 0;
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
    if (!kind.enabled || now < kind.schedule.next_due || stopping()) continue;
    const std::int32_t previous_poll = kind.schedule.last_poll;
    plan_next_poll(kind.schedule, now, interval);
    kind.refresh_rows();
    kind.poll(now, previous_poll);
  }
}

}  // namespace tally
