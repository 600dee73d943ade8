// The interval that the preferences ask for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tally {

// planned_interval returns the interval with which the daemon starts, in seconds; nothing when the
// preferences exist but cannot be read now. A message may have changed the daemon's since.
std::optional<std::int32_t> planned_interval(const std::string& preferences);

}  // namespace tally
