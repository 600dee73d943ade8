#include "records/collection_name.h"

#include <charconv>
#include <filesystem>
#include <optional>
#include <string_view>

#include "daemon/base/collection_types.h"

namespace tally {
namespace {

std::string all_types() {
  std::string list;
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    if (type_stem(type) == nullptr) continue;
    list += fmt::format("{}{} ({})", list.empty() ? "" : ", ", type_stem(type), type);
  }
  return list;
}

std::uint32_t parse_type(const std::string& word) {
  const auto number = parse_number(word);
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    if (type_stem(type) != nullptr && (number ? *number == type : word == type_stem(type))) {
      return type;
    }
  }
  throw UsageError("unknown collection type '{}'; the types are {}", word, all_types());
}

}  // namespace

std::optional<std::uint32_t> parse_number(std::string_view word) {
  std::uint32_t number = 0;
  const char* end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

std::vector<Collection> parse_collections(std::vector<std::string> words) {
  std::vector<Collection> collections;
  if (words.size() == 2 && words[1] == "0" && is_supervisor_type(parse_type(words[0]))) {
    words.pop_back();
  }
  for (auto word = words.begin(); word != words.end(); ++word) {
    Collection collection{parse_type(*word), 0};
    if (is_agent_type(collection.type)) {
      const std::string& type = *word;
      if (++word == words.end()) {
        throw UsageError("'{}' needs a control index after it", type);
      }
      const auto index = parse_number(*word);
      if (!index) {
        throw UsageError("'{}' is not a control index (0 to 4294967295)", *word);
      }
      collection.index = *index;
    }
    collections.push_back(collection);
  }
  return collections;
}

Collection parse_collection(const std::vector<std::string>& words) {
  const auto collections = parse_collections(words);
  if (collections.size() != 1) {
    throw UsageError("one collection is asked for: TYPE INDEX, or a supervisor kind without INDEX");
  }
  return collections.front();
}

std::string title(const Collection& collection) {
  if (is_supervisor_type(collection.type)) return type_stem(collection.type);
  return fmt::format("{} {}", type_stem(collection.type), collection.index);
}

std::string file_path(const std::string& directory, const Collection& collection, FileKind kind) {
  const std::filesystem::path path = collection_path(collection.type, collection.index, kind).text;
  return std::filesystem::path(directory) / path.filename();
}

std::optional<FileKind> parse_file_kind(std::string_view word) {
  for (const FileKind kind : kFileKinds) {
    if (word == file_kind_name(kind)) return kind;
  }
  return std::nullopt;
}

}  // namespace tally
