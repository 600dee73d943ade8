// Collections as people name them: "host 3", "etherstats", "0 3", "12".
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_format.h"

namespace tally {

struct Collection {
  std::uint32_t type;   // a legal type
  std::uint32_t index;  // 0 for the supervisor kinds

  bool operator==(const Collection&) const = default;
};

// UsageError tells what is wrong with the words on the command line.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
  template <class First, class... Rest>
  UsageError(fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest)
      : UsageError(fmt::format(format, std::forward<First>(first), std::forward<Rest>(rest)...)) {}
};

// parse_number reads a decimal number, and nothing else.
std::optional<std::uint32_t> parse_number(std::string_view word);

// parse_collections reads a list of TYPE INDEX pairs; the type is a file stem or a code. An agent
// type is followed by its control index, a supervisor kind (12 to 14) is not, or, where it is the
// only one, by 0. Throws UsageError.
std::vector<Collection> parse_collections(std::vector<std::string> words);

// parse_collection reads the words of exactly one collection. Throws UsageError.
Collection parse_collection(const std::vector<std::string>& words);

// title returns "host 3" or "etherstats".
std::string title(const Collection& collection);

// file_path returns where one of the collection's files lies in a data directory.
std::string file_path(const std::string& directory, const Collection& collection, FileKind kind);

// The kinds of files, those for readers first.
inline constexpr FileKind kFileKinds[] = {FileKind::delta, FileKind::last, FileKind::prev};

// parse_file_kind reads "delta", "last" or "prev".
std::optional<FileKind> parse_file_kind(std::string_view word);

}  // namespace tally
