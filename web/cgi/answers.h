// What a request that was understood gets: the JSON of each answer.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "names/names.h"
#include "request.h"

namespace tally::cgi {

// Every collection file of the data directory:
//
//   {"now": 1764030000.25, "truncated": false, "collections": [
//     {"type": "host", "code": 0, "index": 3, "name": "Host (MAC)", "files": {"delta":
//       {"name": "host_3_delta.bin", "size": 636, "mtime": "1764029990.123456789", "writing":
//        false, "header": {"interval": 60, "up_time": 0, "time": 1764029990, "code": 0}}, ...}},
//        ...]}
//
// "now" is this machine's clock; "mtime" tells one state of a file from the next. "writing": the
// daemon holds its lock at this moment. A file without 16 bytes has the header null; one that
// cannot be looked at has an "error" instead of all but the name. When there are more files than
// are worth listing, "truncated" says so. Throws std::system_error when the directory cannot be
// read.
nlohmann::json answer_to(const ListRequest& request);

// What people see in place of values in the delta files: {"names": {"host/3": {...}, ...}}, each as
// add_names has it. A file that is not there or not good has no names; of a large one the first
// 10,000 are told.
nlohmann::json answer_to(const NamesRequest& request);

// add_names adds what people see in place of the values of a record's key that have a name, by
// column and by value: {"protocolDirLocalIndex": {"130": "ether2.ip.udp.dns"}, "nlHostAddress":
// {...}}. It returns how many were not there.
std::size_t add_names(nlohmann::json& found, const Names& names, const RecordLayout& layout,
                      const unsigned char* record);

// Rates of the time that ends now, out of the recorder's databases:
//
//   {"begin": 1764000000, "step": 180, "rows": [{"key": "020000000001", "rates": {"hostOutOctets":
//     [null, 1.5, ...]}}, ...], "total": [...], "names": {"hostAddress": {...}}, "left_out": 0}
//
// Value i is the mean over the `step` seconds from begin + i * step; null: less than half of them
// are known. "key" has the octets of a row's key as the files have them. Of a collection the eight
// rows come that had most in all of the time, and "total" sums up all that were kept, or is the row
// that sums up all. Databases for which there is no time are left out.
// All that is live comes first on the processor. Throws Refusal where there is nothing to tell.
nlohmann::json answer_to(const HistoryRequest& request);

// The agent's control rows, and the supervisor's kinds that the settings switch off:
//
//   {"agent": {"host": [{"index": 1, "owner": "monitor"}], "matrix": [], ...}, "disabled":
//   ["ifstats"]}
//
// "agent" is null when it does not answer. Of a table the first 256 rows are told. What cannot be
// read switches nothing off.
nlohmann::json answer_to(const SourcesRequest& request);

}  // namespace tally::cgi
