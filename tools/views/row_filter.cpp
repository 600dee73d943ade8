#include "views/row_filter.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "records/cell_text.h"

namespace tally {

namespace {

struct Comparison {
  std::string_view sign;
  bool (*holds)(double, double);
};
constexpr Comparison kComparisons[] = {
    {"<=", [](double a, double b) { return a <= b; }},
    {">=", [](double a, double b) { return a >= b; }},
    {"<", [](double a, double b) { return a < b; }},
    {">", [](double a, double b) { return a > b; }},
};

// number_of reads 1500, 1.5e3 or 1.5k.
std::optional<double> number_of(std::string_view text) {
  constexpr std::string_view kPrefixes = "kMGT";
  double number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc{}) return std::nullopt;
  if (end == last) return number;
  const std::size_t prefix = kPrefixes.find(*end);
  if (prefix == std::string_view::npos || end + 1 != last) return std::nullopt;
  return number * std::pow(1000, static_cast<double>(prefix + 1));
}

}  // namespace

RowFilter::RowFilter(const RecordLayout& layout, const std::vector<std::string>& conditions,
                     const Names* names)
    : layout_(layout), names_(names) {
  for (const std::string& text : conditions) {
    const std::size_t at = std::min(text.find_first_of("=<>!"), text.size());
    const std::string_view rest = std::string_view(text).substr(at);
    const bool unlike = rest.starts_with("!=");
    const auto* const comparison = std::ranges::find_if(
        kComparisons, [&](const Comparison& each) { return rest.starts_with(each.sign); });
    const bool compares = comparison != std::end(kComparisons);
    if (!compares && !unlike && !rest.starts_with('=')) {
      throw UsageError(
          "'{}' is not a condition; write COLUMN=PATTERN, COLUMN!=PATTERN, or "
          "COLUMN>NUMBER, >=, <, <=",
          text);
    }
    const auto column = find_column(layout, text.substr(0, at));
    if (!column) {
      throw UsageError("there is no column '{}'; columns are {}", text.substr(0, at),
                       column_names(layout));
    }
    if (!compares) {
      conditions_.push_back(
          {*column, nullptr, 0, std::string(rest.substr(unlike ? 2 : 1)), unlike});
      continue;
    }
    const auto bound = number_of(rest.substr(comparison->sign.size()));
    const ColumnKind kind = layout.columns[*column].kind;
    if (!bound ||
        !(is_value(kind) || kind == ColumnKind::number || kind == ColumnKind::number_or_total)) {
      throw UsageError("'{}': {} compares a column of numbers with a number: 1500, 1.5k", text,
                       comparison->sign);
    }
    conditions_.push_back({*column, comparison->holds, *bound, {}, false});
  }
}

bool RowFilter::accepts(const unsigned char* record) const {
  bool found = sought_.empty();
  for (std::size_t i = 0; i < layout_.key_columns && !found; ++i) {
    found = is_visible(layout_.columns[i].kind) && is_like(sought_, record, i);
  }
  return found && std::all_of(conditions_.begin(), conditions_.end(),
                              [&](const Condition& condition) { return holds(condition, record); });
}

bool RowFilter::holds(const Condition& condition, const unsigned char* record) const {
  const std::size_t column = condition.column;
  if (condition.compare == nullptr) {
    return is_like(condition.pattern, record, column) != condition.unlike;
  }
  return condition.compare(is_value(layout_.columns[column].kind)
                               ? value_of(layout_, record, column)
                               : number_at(record + layout_.offsets[column]),
                           condition.bound);
}

bool RowFilter::is_like(const std::string& pattern, const unsigned char* record,
                        std::size_t column) const {
  const auto matches = [&](const std::string& text) {
    return !text.empty() && fnmatch(pattern.c_str(), text.c_str(), FNM_CASEFOLD) == 0;
  };
  return matches(cell_text(layout_, record, column, NumberStyle::exact)) ||
         (names_ != nullptr && matches(names_->name_of(layout_, record, column)));
}

}  // namespace tally
