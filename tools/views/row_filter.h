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
  // its name with a pattern of the shell (*, ?, [...]): one of them is enough. `<`, `<=`, `>` and
  // `>=` compare numbers, which may end in k, M, G or T. `names` may be null, and outlives the
  // filter. Throws UsageError.
  RowFilter(const RecordLayout& layout, const std::vector<std::string>& conditions,
            const Names* names = nullptr);

  // search lets only rows through that have this text in a part of their key, or in its name.
  void search(const std::string& text) { sought_ = text.empty() ? text : '*' + text + '*'; }

  bool accepts(const unsigned char* record) const;

 private:
  struct Condition {
    std::size_t column;
    bool (*compare)(double, double);  // with the bound; null: a pattern
    double bound;
    std::string pattern;
    bool unlike;
  };

  bool holds(const Condition& condition, const unsigned char* record) const;
  bool is_like(const std::string& pattern, const unsigned char* record, std::size_t column) const;

  const RecordLayout& layout_;
  const Names* names_;
  std::vector<Condition> conditions_;
  std::string sought_;  // a pattern; empty: none
};

}  // namespace tally
