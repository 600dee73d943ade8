// Strict reading of JSON objects: a key that nobody has asked for is an error.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace minitapd {

// One object of a script, at the place `where`. All reading throws ScriptError.
class JsonReader {
 public:
  JsonReader(const nlohmann::json& object, std::string where);

  // get returns the member, or null when there is none.
  const nlohmann::json* get(std::string_view key);
  const nlohmann::json& require(std::string_view key);

  // The member as a number within the bounds, or `missing` when there is none.
  std::int64_t integer(std::string_view key, std::int64_t low, std::int64_t high,
                       std::int64_t missing);
  std::uint32_t word(std::string_view key, std::uint32_t missing);
  std::string text(std::string_view key, std::string_view missing);

  // counters reads exactly `count` unsigned 64-bit numbers, written as numbers or decimal strings;
  // none when the member is missing.
  std::vector<std::uint64_t> counters(std::string_view key, std::size_t count);

  // bytes reads an address such as "02:00:5e"; none when the member is missing.
  std::string bytes(std::string_view key);

  // finish refuses members that nobody has asked for.
  void finish() const;

  [[nodiscard]] std::string where(std::string_view key) const;

 private:
  const nlohmann::json& object_;
  std::string where_;
  std::set<std::string, std::less<>> known_;
};

// for_each_element calls function(element, place) for every element of an array.
void for_each_element(
    const nlohmann::json& array, const std::string& where,
    const std::function<void(const nlohmann::json&, const std::string&)>& function);

// hex_bytes decodes hexadecimal digits in pairs; colons and spaces may stand between pairs.
std::string hex_bytes(std::string_view text, const std::string& where);

}  // namespace minitapd
