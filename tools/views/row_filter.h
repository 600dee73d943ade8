// Which rows a reader wants: "hostAddress=02:00:*", "hostOutOctets>1000".
#pragma once

#include <string>
#include <vector>

#include "names/names.h"
#include "records/collection_name.h"
#include "records/record_columns.h"

namespace tally {

class RowFilter {
 public:
  // Reads conditions COLUMN OP VALUE, all of which must hold. `=` and `!=` compare the value and
  // its name with a pattern of the shell (*, ?, [...]): one of them is enough. `<` and `>` compare
  // numbers. `names` may be null, and outlives the filter. Throws UsageError.
  RowFilter(const RecordLayout& layout, const std::vector<std::string>& conditions,
            const Names* names = nullptr);

  bool empty() const { return conditions_.empty(); }
  bool accepts(const unsigned char* record) const;

 private:
  enum class Operation { like, unlike, less, greater };
  struct Condition {
    std::size_t column;
    Operation operation;
    std::string pattern;
    double bound;
  };

  bool holds(const Condition& condition, const unsigned char* record) const;

  const RecordLayout& layout_;
  const Names* names_;
  std::vector<Condition> conditions_;
};

}  // namespace tally
