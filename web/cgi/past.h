// Rates of the past, out of the recorder's databases.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <variant>

#include "request.h"

namespace tally::cgi {

// list_history reads the databases below a directory, of the time that ends `now`, and tells what
// is asked for:
//
//   {"begin": 1764000000, "step": 180, "rows": [{"key": "020000000001", "rates": {"hostOutOctets":
//     [null, 1.5, ...]}}, ...], "total": [...], "names": {"hostAddress": {...}}, "left_out": 0}
//
// Value i is the mean over the `step` seconds from begin + i * step; null: less than half of them
// are known. "key" has the octets of a row's key as the files have them; "names" is as in naming.h.
// Of a collection the eight rows come that had most in all of the time, and "total" sums up the
// rows that were kept, or is the row that sums up all. Memory follows what is told; databases for
// which there is no time are left out.
std::variant<nlohmann::json, Refusal> list_history(const std::string& directory,
                                                   const HistoryRequest& request, std::int64_t now);

}  // namespace tally::cgi
