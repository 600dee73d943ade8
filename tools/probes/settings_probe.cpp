#include "probes/settings_probe.h"

#include "daemon/base/schedule.h"
#include "daemon/base/settings.h"

namespace tally {

std::optional<std::int32_t> planned_interval(const std::string& preferences) {
  const Preferences read = read_preferences(preferences.c_str());
  if (read.state != DatabaseState::good && read.state != DatabaseState::absent) return std::nullopt;
  return read.interval != 0 ? read.interval : kDefaultInterval;
}

AnnotateOptions annotate_options(const ToolPaths& paths, double line_speed) {
  return {planned_interval(paths.preferences), line_speed, covered_times(paths.data_directory)};
}

}  // namespace tally
