// Rates of the past, out of the recorder's databases.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "request.h"

namespace tally::cgi {

// list_history tells of the time that ends now:
//
//   {"begin": 1764000000, "step": 180, "rows": [{"key": "020000000001", "rates": {"hostOutOctets":
//     [null, 1.5, ...]}}, ...], "total": [...], "names": {"hostAddress": {...}}, "left_out": 0}
//
// Value i is the mean over the `step` seconds from begin + i * step; null: less than half of them
// are known. "key" has the octets of a row's key as the files have them; "names" is as in naming.h.
// Of a collection the eight rows come that had most in all of the time, and "total" sums up all
// that were kept, or is the row that sums up all. Databases for which there is no time are left
// out.
// All that is live comes first on the processor. Throws Refusal where there is nothing to tell.
nlohmann::json list_history(const HistoryRequest& request);

}  // namespace tally::cgi
