// What the keys of a collection are called.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "names/names.h"
#include "records/collection_name.h"

namespace tally::cgi {

// add_names adds what people see in place of the values of a record's key that have a name, by
// column and by value: {"protocolDirLocalIndex": {"130": "ether2.ip.udp.dns"}, "nlHostAddress":
// {...}}. It returns how many were not there.
std::size_t add_names(nlohmann::json& found, const Names& names, const RecordLayout& layout,
                      const unsigned char* record);

// list_names tells those in the delta files of these collections in a directory: {"names":
// {"host/3":
// {...}, ...}}. A file that is not there or not good has no names; of a large one the first 10,000
// are told.
nlohmann::json list_names(const std::string& directory, const std::vector<Collection>& collections);

}  // namespace tally::cgi
