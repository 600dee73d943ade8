// What the keys of a collection are called.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "records/collection_name.h"

namespace tally::cgi {

// list_names looks at the delta file of a collection in a directory and tells what people see in
// place of the values of its keys that have a name, by column and by value:
//
//   {"names": {"protocolDirLocalIndex": {"130": "ether2.ip.udp.dns"}, "nlHostAddress": {...}}}
//
// A file that is not there or not good has no names; of a large one the first 10,000 are told.
nlohmann::json list_names(const std::string& directory, const Collection& collection);

}  // namespace tally::cgi
