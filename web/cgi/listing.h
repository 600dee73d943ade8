// Which collections have files, and what their headers say.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tally::cgi {

// list_collections looks at every collection file of a directory and tells:
//
//   {"now": 1764030000.25, "truncated": false, "collections": [
//     {"type": "host", "code": 0, "index": 3, "name": "Host (MAC)", "files": {"delta":
//       {"name": "host_3_delta.bin", "size": 636, "mtime": "1764029990.123456789", "writing":
//       false,
//        "header": {"interval": 60, "up_time": 0, "time": 1764029990, "code": 0}}, ...}}, ...]}
//
// "now" is this machine's clock; "mtime" tells one state of a file from the next. "writing": the
// daemon holds its lock at this moment. A file without 16 bytes has the header null; one that
// cannot be looked at has an "error" instead of all but the name. When there are more files than
// are worth listing, "truncated" says so. Throws std::system_error when the
// directory cannot be read.
nlohmann::json list_collections(const std::string& directory);

}  // namespace tally::cgi
