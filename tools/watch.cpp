// watch: several collections, shown again at each new delta file.
#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <variant>

#include "daemon/collection_types.h"
#include "delta_reader.h"
#include "interruption.h"
#include "locked_file.h"
#include "tallyctl.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLook{200};  // between two looks at the files

// Watched is one collection and what is known of its delta file.
struct Watched {
  Collection collection;
  std::string path;
  TableStyle style;
  std::optional<FileStamp> stamp;    // of the file that was read last
  std::vector<unsigned char> bytes;  // what the table is a view of
  std::optional<DeltaTable> table;   // nothing until there is a good delta file
  std::string remark;                // why there is no table
  unsigned rates_shown = 0;          // delta files with rows
};

// look reads the delta file again if it changed. Returns whether there is something new to show. A
// file that is being written is left for the next look.
bool look(Watched& watched) {
  const auto remark = [&](const std::string& text) {
    watched.table.reset();
    return text != std::exchange(watched.remark, text);
  };
  const auto stamp = stamp_of(watched.path);
  if (stamp && stamp == watched.stamp) return false;
  FileContent content = read_shared(watched.path, std::chrono::milliseconds{0});
  switch (content.outcome) {
    case ReadOutcome::writing:
      return false;
    case ReadOutcome::absent:
      watched.stamp.reset();
      return remark("no delta file yet");
    case ReadOutcome::failed:
      return remark(content.error);
    case ReadOutcome::done:
      break;
  }
  watched.stamp = content.stamp;
  watched.bytes = std::move(content.bytes);
  const DeltaResult result = parse_delta(watched.bytes, watched.collection.type);
  if (const auto* fault = std::get_if<DeltaFault>(&result)) {
    return remark(fault_text(*fault, watched.bytes, watched.collection.type));
  }
  watched.table = std::get<DeltaTable>(result);
  watched.remark.clear();
  if (watched.table->count() > 0) ++watched.rates_shown;
  return true;
}

// frame writes all collections for a terminal: from the upper left corner, each line cleared behind
// its text and everything below at the end, so that nothing flickers.
std::string frame(const std::vector<Watched>& all, const Terminal& terminal,
                  const std::string& trouble, bool first) {
  // A headline, the column names, perhaps a totals row, and a blank line go with each table; the
  // last line of the screen is for trouble.
  constexpr std::size_t kExtraLines = 4;
  const std::size_t share =
      (terminal.lines - std::min<std::size_t>(terminal.lines, 1)) / all.size();
  const std::size_t room = share > kExtraLines ? share - kExtraLines : 1;
  std::string text;
  for (const Watched& watched : all) {
    if (watched.table) {
      TableStyle style = watched.style;
      style.width = terminal.columns;
      if (terminal.lines != 0) style.top = style.top == 0 ? room : std::min(style.top, room);
      text += table_text(*watched.table, title(watched.collection), style);
    } else {
      text += fmt::format("{}  {}\n", title(watched.collection), watched.remark);
    }
    text += '\n';
  }
  text += trouble.substr(0, terminal.columns == 0 ? std::string::npos : terminal.columns);
  std::string redrawn = first ? "\x1b[2J\x1b[H" : "\x1b[H";
  for (const char character : text) {
    if (character == '\n') redrawn += "\x1b[K";
    redrawn += character;
  }
  return redrawn + "\x1b[K\x1b[J";
}

// watched_style is style_for, but a column to sort by need not be one of every type.
TableStyle watched_style(std::uint32_t type, const WatchOptions& options) {
  const auto has_column = [&](const Collection& collection) {
    return find_column(*record_layout(collection.type), options.display.sort).has_value();
  };
  DisplayOptions display = options.display;
  if (!has_column({type, 0}) &&
      std::any_of(options.collections.begin(), options.collections.end(), has_column)) {
    display.sort.clear();
  }
  return style_for(type, display, look_at_terminal());
}

// say writes what is new where it cannot be redrawn: tables one after another, words to standard
// error. Returns false when standard output takes no more.
bool say(const Watched& watched) {
  if (watched.table) {
    return put(table_text(*watched.table, title(watched.collection), watched.style) + '\n');
  }
  complain(fmt::format("{}: {}", title(watched.collection), watched.remark));
  return true;
}

// view tells the daemon that somebody looks at each collection. Returns an empty text, or why the
// daemon cannot be reached.
std::string view(const ToolPaths& paths, const std::vector<Watched>& all,
                 std::chrono::milliseconds patience) {
  for (const Watched& watched : all) {
    const auto& [type, index] = watched.collection;
    const ControlMessage message{static_cast<std::uint32_t>(MessageType::viewing), type, index};
    std::string error = send_message(paths.control_pipe, message, patience);
    if (!error.empty()) return error;
  }
  return {};
}

// verdict tells, in words and as an exit code, whether the rates of all collections were shown.
ExitCode verdict(const std::vector<Watched>& all, bool reachable) {
  ExitCode code = kDone;
  for (const Watched& watched : all) {
    if (watched.rates_shown > 0) continue;
    complain(fmt::format("{}: no rates were shown", title(watched.collection)));
    code = reachable ? kAbsent : kUnreachable;
  }
  return code;
}

}  // namespace

ExitCode watch(const ToolPaths& paths, const WatchOptions& options) {
  std::vector<Watched> all;
  for (const Collection& collection : options.collections) {
    Watched& watched = all.emplace_back();
    watched.collection = collection;
    watched.path = delta_path(paths.data_directory, collection);
    watched.style = watched_style(collection.type, options);
  }
  const Interruption interruption;
  std::string trouble;
  const auto start = Clock::now();
  auto next_viewing = start;
  bool first = true;
  for (;;) {
    bool news = false;
    if (options.viewing && Clock::now() >= next_viewing) {
      next_viewing = Clock::now() + options.viewing_period;
      const std::string error = view(paths, all, std::chrono::milliseconds{0});
      if (error != trouble && !error.empty()) complain(error);
      news = error != trouble;
      trouble = error;
      if (first && !trouble.empty()) return kUnreachable;
    }
    const Terminal terminal = look_at_terminal();
    for (Watched& watched : all) {
      if (!look(watched)) continue;
      news = true;
      if (!terminal.present && !say(watched)) return kAbsent;
    }
    if (news && terminal.present && !put(frame(all, terminal, trouble, first))) return kAbsent;
    first = false;
    const bool counted =
        options.count && std::all_of(all.begin(), all.end(), [&](const auto& each) {
          return each.rates_shown >= *options.count;
        });
    const bool over = options.duration && Clock::now() - start >= *options.duration;
    if (counted || over || !interruption.sleep(kLook)) break;
  }
  return verdict(all, trouble.empty());
}

}  // namespace tally
