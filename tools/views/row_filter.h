// Which rows a reader wants: "hostAddress=02:00:*", "hostOutOctets>1000".
#pragma once

#include <string>
#include <vector>

#include "records/collection_name.h"
#include "records/record_columns.h"

namespace tally {

class RowFilter {
 public:
  // Reads conditions COLUMN OP VALUE, all of which must hold. `=` and `!=` compare the text that is
  // shown with a pattern of the shell (*, ?, [...]), `<` and `>` compare numbers. Throws
  // UsageError.
  RowFilter(const RecordLayout& layout, const std::vector<std::string>& conditions);

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
  std::vector<Condition> conditions_;
};

}  // namespace tally
