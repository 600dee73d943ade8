// Names of collection files, read back: the other direction of collection_path.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tally::cgi {

struct FileName {
  std::uint32_t type;
  std::uint32_t index;    // 0 for the supervisor kinds
  std::string_view kind;  // "prev", "last" or "delta"; a part of the name that was parsed
};

// parse_file_name knows the names that collection_path makes and no others.
std::optional<FileName> parse_file_name(std::string_view name);

}  // namespace tally::cgi
