#include "views/course.h"

#include <algorithm>
#include <cmath>

#include "views/sparkline.h"

namespace tally {
namespace {

constexpr std::size_t kMostSamples = 60;

}  // namespace

void Course::add(const TableView& view) {
  const bool full = ends_.size() == kMostSamples;
  if (full) ends_.erase(ends_.begin());
  ends_.push_back(view.header.sample_time);
  for (auto& [key, values] : rows_) {
    if (full) values.erase(values.begin());
    values.push_back(NAN);
  }
  const RecordLayout& layout = *view.layout;
  const auto set = [&](std::string_view key, double value) {
    rows_.try_emplace(std::string(key), ends_.size(), NAN).first->second.back() = value;
  };
  for (const Row& row : view.rows) {
    if (!is_rate(row.notes)) continue;
    set(key_of(layout, row.record), value_of(layout, row.record, layout.rank));
  }
  const double most =
      view.count == 0 ? NAN : value_of(layout, view.rows.front().record, layout.rank);
  set("", sum_of(view).value_or(most));
  std::erase_if(rows_, [](const auto& row) {
    return std::ranges::all_of(row.second, [](double value) { return std::isnan(value); });
  });
}

std::string Course::bars(std::string_view key, std::size_t width) const {
  const auto row = rows_.find(key);
  return row == rows_.end() ? "" : sparkline(row->second, width, locale_has_blocks());
}

}  // namespace tally
