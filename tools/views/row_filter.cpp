#include "views/row_filter.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <charconv>

#include "records/cell_text.h"

namespace tally {

RowFilter::RowFilter(const RecordLayout& layout, const std::vector<std::string>& conditions,
                     const Names* names)
    : layout_(layout), names_(names) {
  for (const std::string& text : conditions) {
    const std::size_t at = text.find_first_of("=<>!");
    const std::size_t width = at != std::string::npos && text[at] == '!' ? 2 : 1;
    if (at == std::string::npos || (text[at] == '!' && text.substr(at, 2) != "!=")) {
      throw UsageError(
          fmt::format("'{}' is not a condition; write COLUMN=PATTERN, COLUMN!=PATTERN, "
                      "COLUMN<NUMBER or COLUMN>NUMBER",
                      text));
    }
    const auto column = find_column(layout, text.substr(0, at));
    if (!column) {
      throw UsageError(fmt::format("there is no column '{}'; columns are {}", text.substr(0, at),
                                   column_names(layout)));
    }
    Condition condition{*column, Operation::like, text.substr(at + width), 0};
    if (text[at] == '!') condition.operation = Operation::unlike;
    if (text[at] == '<' || text[at] == '>') {
      condition.operation = text[at] == '<' ? Operation::less : Operation::greater;
      const char* end = condition.pattern.data() + condition.pattern.size();
      const auto [stop, error] = std::from_chars(condition.pattern.data(), end, condition.bound);
      const ColumnKind kind = layout.columns[*column].kind;
      if (error != std::errc{} || stop != end ||
          !(is_value(kind) || kind == ColumnKind::number || kind == ColumnKind::number_or_total)) {
        throw UsageError(
            fmt::format("'{}': < and > compare a column of numbers with a number", text));
      }
    }
    conditions_.push_back(std::move(condition));
  }
}

bool RowFilter::accepts(const unsigned char* record) const {
  return std::all_of(conditions_.begin(), conditions_.end(),
                     [&](const Condition& condition) { return holds(condition, record); });
}

bool RowFilter::holds(const Condition& condition, const unsigned char* record) const {
  const std::size_t column = condition.column;
  if (condition.operation == Operation::less || condition.operation == Operation::greater) {
    const double number = is_value(layout_.columns[column].kind)
                              ? value_of(layout_, record, column)
                              : number_at(record + layout_.offsets[column]);
    return condition.operation == Operation::less ? number < condition.bound
                                                  : number > condition.bound;
  }
  const auto matches = [&](const std::string& text) {
    return fnmatch(condition.pattern.c_str(), text.c_str(), FNM_CASEFOLD) == 0;
  };
  bool like = matches(cell_text(layout_, record, column, NumberStyle::exact));
  if (!like && names_ != nullptr) {
    const std::string name = names_->name_of(layout_, record, column);
    like = !name.empty() && matches(name);
  }
  return like == (condition.operation == Operation::like);
}

}  // namespace tally
