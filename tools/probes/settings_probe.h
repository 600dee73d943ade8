// The interval that the preferences ask for, and what the files say of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "probes/tool_paths.h"
#include "records/annotate.h"

namespace tally {

// planned_interval returns the interval with which the daemon starts, in seconds; nothing when the
// preferences exist but cannot be read now. A message may have changed the daemon's since.
std::optional<std::int32_t> planned_interval(const std::string& preferences);

// annotate_options gathers what notes are made with.
AnnotateOptions annotate_options(const ToolPaths& paths, double line_speed = 0);

}  // namespace tally
