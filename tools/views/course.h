// How the rates of a collection went in its last samples.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "views/table_text.h"

namespace tally {

// Course remembers one rate, that of the type's rank: of the total, or of the busiest row where
// there is none, and of the rows that it is shown. Its memory is bounded: rows that no sample has
// any more are forgotten.
class Course {
 public:
  // add takes the rows of a new sample, the busiest first.
  void add(const TableView& view);

  // bars draws what is remembered of the row with this key, or of the total: that has none. Samples
  // that did not show the row are blank.
  std::string bars(std::string_view key, std::size_t width) const;

  std::size_t samples() const { return ends_.size(); }
  std::int64_t begin() const { return ends_.empty() ? 0 : ends_.front(); }  // of the first sample

 private:
  std::vector<std::int64_t> ends_;                                // when the samples were taken
  std::map<std::string, std::vector<double>, std::less<>> rows_;  // by key
};

}  // namespace tally
