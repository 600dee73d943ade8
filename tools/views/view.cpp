#include "views/view.h"

#include <fmt/format.h>

#include <cmath>

#include "records/record_cell.h"

namespace tally {
namespace {

// add_to_totals counts a row of the file in, where the type has a total.
void add_to_totals(TableView& view, const unsigned char* record, RowNotes notes) {
  const RecordLayout& layout = *view.layout;
  const bool total = is_total(layout, record);
  const bool counts = layout.total == TotalRule::row ? total : layout.total == TotalRule::sum;
  if (total) --view.count;
  if (!counts || !is_rate(notes)) return;
  view.totals.resize(layout.columns.size(), 0);
  for (std::size_t i = layout.key_columns; i < layout.columns.size(); ++i) {
    const double value = value_of(layout, record, i);
    if (std::isfinite(value)) view.totals[i] += value;
  }
}

}  // namespace

RowOrder order_for(const RecordLayout& layout, const std::string& column, bool reversed,
                   std::size_t top) {
  RowOrder order{{}, reversed, top};
  if (!column.empty()) {
    order.column = find_column(layout, column);
    if (!order.column) {
      throw UsageError("there is no column '{}'; columns are {}", column, column_names(layout));
    }
  } else if (top != 0) {
    order.column = layout.rank;
  }
  return order;
}

LoadedView load_view(const OpenFiles& files, const RowFilter& filter, const RowOrder& order,
                     const AnnotateOptions* options) {
  LoadedView loaded{RowSelection(*files.main.layout, order), {}};
  TableView& view = loaded.view;
  view.collection = files.collection;
  view.kind = files.kind;
  view.header = files.main.header;
  view.layout = files.main.layout;
  view.count = files.main.count();
  view.order = order;
  view.notes = read_rows(files, options, [&](const unsigned char* record, RowNotes notes) {
    add_to_totals(view, record, notes);
    if (!filter.accepts(record)) return true;
    if (!is_total(*view.layout, record)) ++view.accepted;
    loaded.selection.add(record, notes);
    return true;
  });
  view.rows = loaded.selection.rows();
  return loaded;
}

}  // namespace tally
