#include "probes/tool_paths.h"

#include <cstdlib>

#include "daemon/base/paths.h"

namespace tally {

ToolPaths appliance_paths() {
  const char* directory = std::getenv("TALLYD_DIR");
  const bool elsewhere = directory != nullptr && *directory != '\0';
  return {elsewhere ? directory : kDataDirectory,
          kControlPipe,
          kPidFile,
          kPreferences,
          kNmpSettings,
          kApplianceSettings};
}

}  // namespace tally
