#include "minitapd/json_reader.h"

#include <charconv>
#include <limits>
#include <utility>

#include "minitapd/script.h"

namespace minitapd {

namespace {

using nlohmann::json;

std::uint64_t counter_of(const json& value, const std::string& where) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc{} && end == text.data() + text.size()) return number;
  }
  throw ScriptError(where + ": wants a counter, 0 to 2^64 - 1");
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

JsonReader::JsonReader(const json& object, std::string where)
    : object_(object), where_(std::move(where)) {
  if (!object.is_object()) throw ScriptError(where_ + ": wants an object");
}

std::string JsonReader::where(std::string_view key) const {
  return where_.empty() ? std::string(key) : where_ + "." + std::string(key);
}

const json* JsonReader::get(std::string_view key) {
  known_.emplace(key);
  const auto it = object_.find(std::string(key));
  return it == object_.end() ? nullptr : &*it;
}

const json& JsonReader::require(std::string_view key) {
  const json* member = get(key);
  if (member == nullptr) throw ScriptError(where(key) + ": is missing");
  return *member;
}

std::int64_t JsonReader::integer(std::string_view key, std::int64_t low, std::int64_t high,
                                 std::int64_t missing) {
  const json* member = get(key);
  if (member == nullptr) return missing;
  const bool fits = member->is_number_unsigned()
                        ? member->get<std::uint64_t>() <= static_cast<std::uint64_t>(high)
                        : member->is_number_integer() && member->get<std::int64_t>() <= high;
  if (!fits || member->get<std::int64_t>() < low) {
    throw ScriptError(where(key) + ": wants an integer, " + std::to_string(low) + " to " +
                      std::to_string(high));
  }
  return member->get<std::int64_t>();
}

std::uint32_t JsonReader::word(std::string_view key, std::uint32_t missing) {
  // Negative numbers are the same bits on the wire.
  return static_cast<std::uint32_t>(integer(key, std::numeric_limits<std::int32_t>::min(),
                                            std::numeric_limits<std::uint32_t>::max(), missing));
}

std::string JsonReader::text(std::string_view key, std::string_view missing) {
  const json* member = get(key);
  if (member == nullptr) return std::string(missing);
  if (!member->is_string()) throw ScriptError(where(key) + ": wants a string");
  return member->get<std::string>();
}

std::vector<std::uint64_t> JsonReader::counters(std::string_view key, std::size_t count) {
  const json* member = get(key);
  if (member == nullptr) return {};
  std::vector<std::uint64_t> numbers;
  for_each_element(*member, where(key), [&](const json& value, const std::string& place) {
    numbers.push_back(counter_of(value, place));
  });
  if (numbers.size() != count) {
    throw ScriptError(where(key) + ": wants " + std::to_string(count) + " counters");
  }
  return numbers;
}

std::string JsonReader::bytes(std::string_view key) {
  return hex_bytes(text(key, ""), where(key));
}

void JsonReader::finish() const {
  for (const auto& [key, value] : object_.items()) {
    if (!known_.contains(key)) throw ScriptError(where(key) + ": unknown key");
  }
}

void for_each_element(const json& array, const std::string& where,
                      const std::function<void(const json&, const std::string&)>& function) {
  if (!array.is_array()) throw ScriptError(where + ": wants an array");
  for (std::size_t i = 0; i < array.size(); ++i) {
    function(array[i], where + "[" + std::to_string(i) + "]");
  }
}

std::string hex_bytes(std::string_view text, const std::string& where) {
  std::string bytes;
  while (!text.empty()) {
    if (!bytes.empty() && (text.front() == ':' || text.front() == ' ')) text.remove_prefix(1);
    const int high = text.size() < 2 ? -1 : hex_digit(text[0]);
    const int low = text.size() < 2 ? -1 : hex_digit(text[1]);
    if (high < 0 || low < 0) {
      throw ScriptError(where + ": wants pairs of hexadecimal digits with colons between");
    }
    bytes += static_cast<char>(high * 16 + low);
    text.remove_prefix(2);
  }
  return bytes;
}

}  // namespace minitapd
