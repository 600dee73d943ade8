// A view of one collection: its rows, filtered, annotated and ordered.
#pragma once

#include <string>

#include "records/annotate.h"
#include "views/row_filter.h"
#include "views/row_selection.h"
#include "views/table_text.h"

namespace tally {

// LoadedView is a view with the rows that it shows.
struct LoadedView {
  RowSelection selection;  // owns the records of `view`
  TableView view;
};

// order_for turns a column's name into an order of a type's rows. With an empty name rows that are
// cut off at `top` are the busiest. Throws UsageError when there is no column of the name.
RowOrder order_for(const RecordLayout& layout, const std::string& column, bool reversed,
                   std::size_t top);

// load_view reads all rows of `files`, which must be good, once.
LoadedView load_view(const OpenFiles& files, const RowFilter& filter, const RowOrder& order,
                     const AnnotateOptions* options);

}  // namespace tally
