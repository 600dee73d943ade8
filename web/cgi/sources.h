// What there is to be collected.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace tally::cgi {

// list_sources asks the agent for its control rows, and looks into the settings for the
// supervisor's kinds that are switched off:
//
//   {"agent": {"host": [{"index": 1, "owner": "monitor"}], "matrix": [], ...}, "disabled":
//   ["ifstats"]}
//
// "agent" is null when it does not answer. Of a table the first 256 rows are told. What cannot be
// read switches nothing off.
nlohmann::json list_sources();

}  // namespace tally::cgi
