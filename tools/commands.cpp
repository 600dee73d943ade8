// The commands that send messages, and show.
#include <fmt/format.h>

#include <variant>

#include "daemon/collection_types.h"
#include "delta_reader.h"
#include "interruption.h"
#include "locked_file.h"
#include "tallyctl.h"

namespace tally {
namespace {

// A daemon that is busy with the supervisor reads its pipe only afterwards.
constexpr std::chrono::milliseconds kPipePatience{5000};

}  // namespace

TableStyle style_for(std::uint32_t type, const DisplayOptions& options, const Terminal& terminal) {
  const RecordLayout& layout = *record_layout(type);
  TableStyle style;
  style.numbers = options.si ? NumberStyle::si : NumberStyle::exact;
  style.top = options.top;
  style.colour = terminal.colour && !options.no_colour;
  if (!options.sort.empty()) {
    style.sort_column = find_column(layout, options.sort);
    if (!style.sort_column) {
      throw UsageError(fmt::format("{} has no column '{}'; columns are {}", type_stem(type),
                                   options.sort, column_names(layout)));
    }
  } else if (options.top != 0) {
    style.sort_column = layout.rank;
  }
  return style;
}

ExitCode send(const ToolPaths& paths, const ControlMessage& message) {
  const std::string error = send_message(paths.control_pipe, message, kPipePatience);
  if (error.empty()) return kDone;
  complain(error);
  return kUnreachable;
}

ExitCode keep_viewing(const ToolPaths& paths, const ControlMessage& message,
                      std::chrono::seconds period) {
  const Interruption interruption;
  do {
    if (const ExitCode code = send(paths, message); code != kDone) return code;
  } while (interruption.sleep(period));
  return kDone;
}

ExitCode show(const ToolPaths& paths, const ShowOptions& options) {
  const std::string name = title(options.collection);
  const std::string path = delta_path(paths.data_directory, options.collection);
  const TableStyle style = style_for(options.collection.type, options.display, look_at_terminal());

  const FileContent content = read_shared(path, options.patience, [&] {
    complain(fmt::format("{}: the daemon is writing {}; waiting up to {} s", name, path,
                         options.patience.count() / 1000));
  });
  switch (content.outcome) {
    case ReadOutcome::done:
      break;
    case ReadOutcome::absent:
      complain(fmt::format("{}: there is no delta file {}", name, path));
      return kAbsent;
    case ReadOutcome::writing:
      complain(fmt::format("{}: the daemon is still writing {}", name, path));
      return kAbsent;
    case ReadOutcome::failed:
      complain(fmt::format("{}: cannot read {}: {}", name, path, content.error));
      return kAbsent;
  }
  const DeltaResult result = parse_delta(content.bytes, options.collection.type);
  if (const auto* fault = std::get_if<DeltaFault>(&result)) {
    complain(fmt::format("{}: {}: {}", name, path,
                         fault_text(*fault, content.bytes, options.collection.type)));
    return kAbsent;
  }
  const DeltaTable& table = std::get<DeltaTable>(result);
  if (!put(table_text(table, name, style))) {
    complain("cannot write to standard output");
    return kAbsent;
  }
  if (table.count() == 0) {
    complain(fmt::format("{}: only a header: no counter changed, or the disk was full", name));
  }
  return kDone;
}

}  // namespace tally
