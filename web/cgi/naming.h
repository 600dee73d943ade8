// What the keys of a collection are called.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "names/names.h"
#include "records/collection_name.h"

namespace tally::cgi {

// NameList gathers what people see in place of the keys' values that have a name, by column and by
// value: {"protocolDirLocalIndex": {"130": "ether2.ip.udp.dns"}, "nlHostAddress": {...}}.
class NameList {
 public:
  explicit NameList(const RecordLayout& layout) : layout_(layout) { names_.refresh(); }

  // add looks at the key of a record; false: there are as many names as are told of one file.
  bool add(const unsigned char* record);
  nlohmann::json take() { return std::move(found_); }

 private:
  const RecordLayout& layout_;
  Names names_;
  nlohmann::json found_ = nlohmann::json::object();
  std::size_t count_ = 0;
};

// list_names tells the names in the delta file of a collection in a directory: {"names": {...}}. A
// file that is not there or not good has no names; of a large one the first 10,000 are told.
nlohmann::json list_names(const std::string& directory, const Collection& collection);

}  // namespace tally::cgi
