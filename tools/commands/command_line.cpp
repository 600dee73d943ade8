// The command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <functional>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/base/schedule.h"

namespace tally {
namespace {

using std::chrono::seconds;

using Action = std::function<ExitCode()>;

// Words is what the options and arguments of all commands are read into.
struct Words {
  std::vector<std::string> collections;
  std::string file = "delta";
  std::string colour = "auto";
  std::int32_t interval = 0;
  double line_speed = 0;  // Mbit/s
  unsigned keep = 0;
  unsigned wait = 5;
  unsigned every = 5;
  unsigned count = 0;
  unsigned duration = 0;
  bool json = false;
  bool csv = false;
  bool no_notes = false;
  bool no_viewing = false;
  bool no_wait = false;
  ViewOptions view;
  std::string since = "1d";
  RecordOptions record;
  HistoryOptions history;
  MetricsOptions metrics;
};

// Builder adds commands to the command line; each sets the action that it stands for.
struct Builder {
  CLI::App& app;
  Words& words;
  const ToolPaths& paths;
  Action& action;

  CLI::App& add(const char* name, const char* help, Action run) const {
    CLI::App* command = app.add_subcommand(name, help);
    command->callback([this, run = std::move(run)] { action = run; });
    return *command;
  }
};

std::optional<seconds> duration_of(const Words& words) {
  return words.duration == 0 ? std::nullopt : std::optional(seconds{words.duration});
}

CLI::Option* add_collections(CLI::App& command, Words& words, const char* help) {
  return command.add_option("collection", words.collections, help)->type_name("TYPE [INDEX]");
}

void add_collection(CLI::App& command, Words& words) {
  const auto add = [&](const char* name, const char* help) {
    const auto take = [&words](const std::string& word) { words.collections.push_back(word); };
    return command.add_option_function<std::string>(name, take, help)->type_name("");
  };
  add("TYPE", "Its type")->required();
  add("INDEX", "Its control index; a kind of the supervisor has none");
}

void add_top(CLI::App& command, std::size_t& top, const char* help) {
  command.add_option("--top", top, help)->check(CLI::Range(0, 1'000'000'000))->type_name("N");
}

void add_duration(CLI::App& command, Words& words) {
  command.add_option("--seconds", words.duration, "End after this time")
      ->check(CLI::Range(1, 31'536'000))
      ->type_name("SECONDS");
}

void add_every(CLI::App& command, Words& words) {
  command.add_option("--every", words.every, "Tell the daemon this often; default 5")
      ->check(CLI::Range(1, 3600))
      ->type_name("SECONDS");
}

CLI::Option* add_json(CLI::App& command, Words& words, const char* help) {
  return command.add_flag("-j,--json", words.json, help);
}

struct MessageCommand {
  const char* name;
  MessageType type;
  bool names_collection;
  const char* help;
};

constexpr MessageCommand kMessageCommands[] = {
    {"create", MessageType::create, true, "Start a collection anew, from an empty history"},
    {"destroy", MessageType::destroy, true, "End a collection and remove its files"},
    {"viewing", MessageType::viewing, true, "Tell the daemon that somebody looks at a collection"},
    {"interval", MessageType::set_interval, false,
     "Set the interval for collections that are viewed"},
    {"reload", MessageType::reload_settings, false, "Read the supervisor settings again"},
    {"rescan", MessageType::rescan, false, "Scan the agent's control tables again"},
    {"stop", MessageType::terminate, false, "End the daemon"},
};

// note_odd warns of messages that do not do what they say.
void note_odd(MessageType type, const ControlMessage& message) {
  const bool starts = type == MessageType::create || type == MessageType::viewing;
  if (starts && message.collection_type == kDsMatrix) {
    complain("note: the daemon only logs this message when it names dsmatrix");
  }
  const auto interval = static_cast<std::int32_t>(message.collection_type);
  if (type == MessageType::set_interval &&
      (interval < kShortestInterval || interval > kLongestInterval)) {
    complain(fmt::format("note: the daemon takes {} s for {} s",
                         std::clamp(interval, kShortestInterval, kLongestInterval), interval));
  }
}

ExitCode run_message(const ToolPaths& paths, const MessageCommand& command, const Words& words) {
  const auto code = static_cast<std::uint32_t>(command.type);
  const std::vector<Collection> collections = parse_collections(words.collections);
  std::vector<ControlMessage> messages;
  messages.reserve(collections.size() + 1);
  for (const auto& [type, index] : collections) messages.push_back({code, type, index});
  if (!command.names_collection) {
    messages.push_back({code, static_cast<std::uint32_t>(words.interval), 0});
  }
  for (const ControlMessage& message : messages) note_odd(command.type, message);
  if (words.keep != 0) return keep_viewing(paths, collections, seconds{words.keep});
  return command.type == MessageType::terminate ? stop(paths, !words.no_wait)
                                                : send(paths, messages);
}

void add_message(const Builder& builder, const MessageCommand& command) {
  Words& words = builder.words;
  CLI::App& sub = builder.add(command.name, command.help, [&builder, &command] {
    return run_message(builder.paths, command, builder.words);
  });
  if (command.names_collection) add_collections(sub, words, "One or more")->required();
  if (command.type == MessageType::set_interval) {
    sub.add_option("seconds", words.interval, "15 to 3600")->required()->type_name("SECONDS");
  }
  if (command.type == MessageType::viewing) {
    sub.add_option("--keep", words.keep, "Tell it again every SECONDS (5), until interrupted")
        ->expected(0, 1)
        ->default_str("5")
        ->check(CLI::Range(1, 3600))
        ->type_name("[SECONDS]");
  }
  if (command.type == MessageType::terminate) {
    sub.add_flag("--no-wait", words.no_wait, "Do not wait until it has ended");
  }
}

// The options that say which rows are shown, and how.
void add_view_options(CLI::App& command, Words& words) {
  ViewOptions& view = words.view;
  add_top(command, view.top, "Show only the first N rows; 0: all");
  command.add_option("--sort", view.sort, "Order by a column: values falling, keys rising")
      ->type_name("COLUMN");
  command.add_flag("--reverse", view.reversed, "Reverse the order");
  command
      .add_option("--where", view.where,
                  "Only rows with COLUMN=PATTERN, != too, or COLUMN>N, >=, <, <= (N: 1500, 1.5k)")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("CONDITION");
  command
      .add_option("--line-speed", words.line_speed,
                  "Speed of an agent's source, to mark rates above it")
      ->check(CLI::PositiveNumber)
      ->type_name("MBIT/S");
  command.add_flag("--no-notes", words.no_notes, "Do not compare rows with the samples");
  command.add_flag("-w,--wide", view.wide,
                   "All columns, by the names of their MIB objects and in their units");
  command.add_flag("--si", view.si, "Round the values of --wide, with a prefix: 1.23M");
  command.add_flag("--resolve", view.resolve, "Ask DNS for the names of network addresses");
  command.add_option("--color", words.colour, "auto: on a terminal without NO_COLOR; or never")
      ->check(CLI::IsMember({"auto", "never"}))
      ->type_name("WHEN");
}

ViewOptions view_of(const Words& words) {
  ViewOptions view = words.view;
  view.format = words.json ? Format::json : words.csv ? Format::csv : Format::table;
  view.file = *parse_file_kind(words.file);
  view.notes = !words.no_notes;
  view.line_speed = words.line_speed * 1e6;
  view.no_colour = words.colour == "never";
  return view;
}

void add_show(const Builder& builder) {
  Words& words = builder.words;
  CLI::App& sub = builder.add("show", "Print one file of a collection", [&builder] {
    const Words& read = builder.words;
    return show(builder.paths, parse_collection(read.collections), view_of(read),
                seconds{read.wait});
  });
  add_collection(sub, words);
  sub.add_option("--file", words.file, "delta (rates, the default), last or prev (counts)")
      ->check(CLI::IsMember({"delta", "last", "prev"}))
      ->type_name("KIND");
  sub.add_flag("--csv", words.csv, "As CSV")->excludes(add_json(sub, words, "As one JSON object"));
  add_view_options(sub, words);
  sub.add_option("--wait", words.wait, "Wait for a file that is being written; default 5")
      ->check(CLI::Range(0, 3600))
      ->type_name("SECONDS");
}

void add_watch(const Builder& builder) {
  Words& words = builder.words;
  CLI::App& sub =
      builder.add("watch", "Show collections live, and keep the daemon polling them", [&builder] {
        const Words& read = builder.words;
        WatchOptions options;
        options.collections = parse_collections(read.collections);
        options.view = view_of(read);
        options.viewing = !read.no_viewing;
        options.viewing_period = seconds{read.every};
        if (read.count != 0) options.count = read.count;
        options.duration = duration_of(read);
        return watch(builder.paths, options);
      });
  add_collections(sub, words, "One or more; default: an overview of all that have files");
  add_view_options(sub, words);
  add_every(sub, words);
  sub.add_flag("--no-viewing", words.no_viewing, "Do not tell the daemon that somebody looks");
  sub.add_option("--count", words.count, "End when the rates of each have been shown N times")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  add_duration(sub, words);
}

void add_view(const Builder& builder) {
  CLI::App& sub =
      builder.add("view", "Keep the daemon polling collections, until interrupted", [&builder] {
        return keep_viewing(builder.paths, parse_collections(builder.words.collections),
                            seconds{builder.words.every});
      });
  add_collections(sub, builder.words, "One or more")->required();
  add_every(sub, builder.words);
}

void add_status_and_check(const Builder& builder) {
  Words& words = builder.words;
  add_json(builder.add("status", "Tell whether the daemon runs, and how old its files are",
                       [&builder] { return status(builder.paths, builder.words.json); }),
           words, "As JSON");
  add_json(builder.add("check", "Look for reasons why something is empty, and say what to do",
                       [&builder] { return check(builder.paths, builder.words.json); }),
           words, "As JSON");
}

void add_record(const Builder& builder) {
  RecordOptions& options = builder.words.record;
  CLI::App& sub = builder.add("record", "Keep a history of rates, until interrupted", [&builder] {
    RecordOptions read = builder.words.record;
    if (read.rrd_directory.empty() == read.csv_directory.empty()) {
      throw UsageError("record needs one of --rrd DIR and --csv DIR");
    }
    read.collections = parse_collections(builder.words.collections);
    read.duration = duration_of(builder.words);
    return record(builder.paths, read);
  });
  add_collections(sub, builder.words, "One or more; default: all that have files");
  CLI::Option* rrd =
      sub.add_option("--rrd", options.rrd_directory, "Into round robin databases, one for each row")
          ->type_name("DIR");
  sub.add_option("--csv", options.csv_directory, "Into CSV files, one for each collection")
      ->excludes(rrd)
      ->type_name("DIR");
  add_top(sub, options.top, "Only the N busiest rows of each interval; 0: all");
  sub.add_option("--rows", options.rows,
                 "Databases of each collection at most; default 1000, of some 300 kB each")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  add_duration(sub, builder.words);
}

// 90, 90s, 30min, 6h, 7d or 2w.
seconds parse_period(const std::string& text) {
  constexpr std::pair<const char*, int> kUnits[] = {{"", 1},     {"s", 1},      {"min", 60},
                                                    {"h", 3600}, {"d", 86'400}, {"w", 604'800}};
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  for (const auto& [unit, factor] : kUnits) {
    if (error == std::errc{} && number > 0 && number < 100'000 && std::string_view(end) == unit) {
      return seconds{std::int64_t{number} * factor};
    }
  }
  throw UsageError(fmt::format("'{}' is no period: write 90s, 30min, 6h, 7d or 2w", text));
}

void add_history(const Builder& builder) {
  Words& words = builder.words;
  HistoryOptions& options = words.history;
  CLI::App& sub = builder.add("history", "Show the rates that 'record --rrd' has kept", [&builder] {
    HistoryOptions read = builder.words.history;
    read.collection = parse_collection(builder.words.collections);
    read.since = parse_period(builder.words.since);
    read.format = view_of(builder.words).format;
    return history(read);
  });
  add_collection(sub, words);
  sub.add_option("--since", words.since, "How far back: 90s, 30min, 6h, 7d or 2w; default 1d")
      ->type_name("PERIOD");
  sub.add_option("--key", options.key, "One row, with all its counters")->type_name("KEY");
  sub.add_option("--column", options.column, "Which rate of all rows; default: the main one")
      ->type_name("COLUMN");
  add_top(sub, options.top, "Only the N busiest rows; 0: all");
  sub.add_option("--rrd", options.directory, "The directory that record was given")
      ->type_name("DIR");
  sub.add_flag("--csv", words.csv, "As CSV")->excludes(add_json(sub, words, "As one JSON object"));
}

void add_metrics(const Builder& builder) {
  MetricsOptions& options = builder.words.metrics;
  CLI::App& sub = builder.add("metrics", "Print the last samples for Prometheus", [&builder] {
    MetricsOptions read = builder.words.metrics;
    read.scope.collections = parse_collections(builder.words.collections);
    return metrics(builder.paths, read);
  });
  add_collections(sub, builder.words, "One or more; default: all that have files");
  add_top(sub, options.scope.top, "Rows of each collection with series of their own; default 50");
  CLI::Option* file =
      sub.add_option("--textfile", options.textfile, "Replace FILE with the page, as a whole")
          ->type_name("FILE");
  sub.add_option("--listen", options.listen, "Serve it at /metrics; a PORT alone means 127.0.0.1")
      ->excludes(file)
      ->type_name("[ADDR:]PORT");
}

}  // namespace

int tallyctl(int argc, const char* const* argv, const ToolPaths& paths) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  CLI::App app("Controls tallyd and shows the rates that it keeps.", "tallyctl");
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("-V,--version", std::string("tallyctl ") + kVersion, "Print the version");
  app.require_subcommand(1);
  Words words;
  Action action;
  const Builder builder{app, words, paths, action};
  for (const MessageCommand& command : kMessageCommands) add_message(builder, command);
  add_view(builder);
  add_show(builder);
  add_watch(builder);
  add_status_and_check(builder);
  add_record(builder);
  add_history(builder);
  add_metrics(builder);
  try {
    std::vector<std::string> known;
    for (const CLI::App* each : app.get_subcommands([](const CLI::App*) { return true; })) {
      known.push_back(each->get_name());
    }
    if (argc > 1 && argv[1][0] != '-' && std::ranges::find(known, argv[1]) == known.end()) {
      throw UsageError(fmt::format("there is no command '{}'; commands are {}", argv[1],
                                   fmt::join(known, ", ")));
    }
    app.parse(argc, argv);
    return action();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  } catch (const UsageError& error) {
    complain(error.what());
    return kUsage;
  }
}

}  // namespace tally
