#include "views/view.h"

#include <fmt/format.h>

namespace tally {

RowOrder order_for(const RecordLayout& layout, const std::string& column, bool reversed,
                   std::size_t top) {
  RowOrder order{{}, reversed, top};
  if (!column.empty()) {
    order.column = find_column(layout, column);
    if (!order.column) {
      throw UsageError(
          fmt::format("there is no column '{}'; columns are {}", column, column_names(layout)));
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
  std::optional<Annotator> annotator;
  if (options != nullptr) annotator.emplace(files, *options);
  Records records = files.main.records();
  while (const unsigned char* record = records.next()) {
    const RowNotes notes = annotator ? annotator->next(record) : RowNotes{0};
    if (!filter.empty() && !filter.accepts(record)) continue;
    ++view.accepted;
    loaded.selection.add(record, notes);
  }
  if (annotator) view.notes = annotator->finish();
  view.rows = loaded.selection.rows();
  return loaded;
}

}  // namespace tally
