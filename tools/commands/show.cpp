// show: one file of a collection, as a table, JSON or CSV.
#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <utility>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "probes/settings_probe.h"
#include "views/row_export.h"
#include "views/view.h"

namespace tally {
namespace {

// export_rows streams the rows, unless they have to be put in order first.
ExitCode export_rows(const OpenFiles& files, const Options& options, const RowFilter& filter,
                     const RowOrder& order, const AnnotateOptions& annotate, const Names& names) {
  const RecordLayout& layout = *files.main.layout;
  Output output(STDOUT_FILENO);
  output << (options.json ? json_head(files, annotate) : csv_heading(layout, true));
  const char* between = "\n";
  const auto write = [&](const unsigned char* record, RowNotes row_notes) {
    if (options.json) {
      output << std::exchange(between, ",\n");
      append_json_row(output.text(), layout, record, row_notes, &names);
    } else {
      append_csv_row(output.text(), layout, record, row_notes, &names);
    }
    return output.flush_full();
  };
  const AnnotateOptions* const noting = options.no_notes ? nullptr : &annotate;
  std::vector<FileNote> notes;
  if (order.column || order.top != 0) {
    const LoadedView loaded = load_view(files, filter, order, noting);
    for (const Row& row : loaded.view.rows) write(row.record, row.notes);
    notes = loaded.view.notes;
  } else {
    notes = read_rows(files, noting, [&](const unsigned char* record, RowNotes row_notes) {
      return !filter.accepts(record) || write(record, row_notes);
    });
  }
  if (options.json) output << json_tail(notes);
  if (!finish(output)) return kAbsent;
  if (options.csv) {
    for (const FileNote& note : notes) complain("note: {}", note.text);
  }
  return kDone;
}

ExitCode print_table(const OpenFiles& files, const Options& options, const RowFilter& filter,
                     const RowOrder& order, const AnnotateOptions& annotate, const Names& names) {
  LoadedView loaded = load_view(files, filter, order, options.no_notes ? nullptr : &annotate);
  loaded.view.now = std::time(nullptr);
  const Terminal terminal = look_at_terminal();
  const TableStyle style{.wide = options.wide,
                         .numbers = options.si ? NumberStyle::si : NumberStyle::exact,
                         .colour = terminal.colour && options.colour != "never",
                         .width = options.wide ? 0 : terminal.columns,
                         .names = &names};
  Output output(STDOUT_FILENO);
  output << table_text(loaded.view, style);
  return finish(output) ? kDone : kAbsent;
}

}  // namespace

ExitCode show(const ToolPaths& paths, const Options& options) {
  const Collection& collection = options.collections.front();
  const FileKind kind = *parse_file_kind(options.file);
  const std::string name = title(collection);
  const RecordLayout* layout = record_layout(collection.type, kind);
  if (layout == nullptr) {
    throw UsageError("{} has no {} file: the daemon keeps its samples in memory", name,
                     file_kind_name(kind));
  }
  Names names;
  names.refresh();
  if (options.resolve) names.resolve();
  const RowFilter filter(*layout, options.where, &names);
  const RowOrder order = order_for(*layout, options.sort, options.reversed, options.top);
  const std::string path = file_path(paths.data_directory, collection, kind);
  const OpenFiles files = open_files(
      paths.data_directory, collection, kind, options.no_notes ? Samples::none : Samples::both,
      std::chrono::seconds(options.wait), [&] {
        complain("{}: the daemon is writing {}; waiting up to {} s", name, path, options.wait);
      });
  if (!files.main.good()) {
    complain("{}: {}: {}", name, path, files.main.remark);
    const auto lack = lack_of(paths.data_directory, collection);
    if (lack) complain("hint: {}: {}", lack->text, lack->advice);
    return kAbsent;
  }
  const AnnotateOptions annotate = annotate_options(paths, options.line_speed * 1e6);
  if (names.resolves()) {
    Records records = files.main.records();
    while (const unsigned char* record = records.next()) names.expect(*layout, record);
    names.await();
  }
  const ExitCode code = !options.json && !options.csv
                            ? print_table(files, options, filter, order, annotate, names)
                            : export_rows(files, options, filter, order, annotate, names);
  if (code == kDone && files.main.count() == 0) {
    complain("{}: only a header: {}", name,
             kind == FileKind::delta ? "no counter changed, or the disk was full"
                                     : "the table had no rows, or the agent did not answer");
  }
  return code;
}

}  // namespace tally
