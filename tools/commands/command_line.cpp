// The command line: which commands there are, and which options each of them takes.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <variant>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

// Whether a command names collections.
enum class Takes { none, one, some, any };

struct Command {
  const char* name;
  ExitCode (*run)(const ToolPaths& paths, const Options& options);
  const char* help;
  Takes takes = Takes::none;
  const char* otherwise = "all that have files";  // than any that are named
};

template <MessageType kType>
ExitCode send_one(const ToolPaths& paths, const Options& options) {
  return send(paths, kType, options);
}

constexpr Command kCommands[] = {
    {"create", send_one<MessageType::create>, "Start a collection anew, from an empty history",
     Takes::some},
    {"destroy", send_one<MessageType::destroy>, "End a collection and remove its files",
     Takes::some},
    {"viewing", send_one<MessageType::viewing>,
     "Tell the daemon that somebody looks at a collection", Takes::some},
    {"interval", send_one<MessageType::set_interval>,
     "Set the interval for collections that are viewed"},
    {"reload", send_one<MessageType::reload_settings>, "Read the supervisor settings again"},
    {"rescan", send_one<MessageType::rescan>, "Scan the agent's control tables again"},
    {"stop", stop, "End the daemon"},
    {"view", view, "Keep the daemon polling collections, until interrupted", Takes::some},
    {"show", show, "Print one file of a collection", Takes::one},
    {"watch", watch, "Show collections live, and keep the daemon polling them", Takes::any,
     "an overview of all that have files"},
    {"status", status, "Tell whether the daemon runs, and how old its files are"},
    {"check", check, "Look for reasons why something is empty, and say what to do"},
    {"record", record, "Keep a history of rates, until interrupted", Takes::any},
    {"history", history, "Show the rates that 'record --rrd' has kept", Takes::one},
    {"metrics", metrics, "Print the last samples for Prometheus", Takes::any},
};

template <int kLeast, int kMost>
CLI::Validator range() {
  return CLI::Range(kLeast, kMost);
}
constexpr auto kAnyRows = range<0, 1'000'000'000>;
constexpr auto kPeriod = range<1, 3600>;
CLI::Validator positive() {
  return CLI::PositiveNumber;
}
CLI::Validator file_kind() {
  return CLI::IsMember({"delta", "last", "prev"});
}
CLI::Validator colour_time() {
  return CLI::IsMember({"auto", "never"});
}

struct Option {
  const char* commands;  // that take it
  const char* name;
  std::variant<bool Options::*, unsigned Options::*, std::int32_t Options::*, double Options::*,
               std::string Options::*, std::vector<std::string> Options::*>
      place;
  const char* help;
  const char* value = "";  // what is called so behind it
  CLI::Validator (*check)() = nullptr;
  const char* excludes = nullptr;
  const char* implied = nullptr;  // the value when there is none
};

constexpr Option kOptions[] = {
    {"interval", "seconds", &Options::interval, "15 to 3600", "SECONDS"},
    {"viewing", "--keep", &Options::keep, "Tell it again every SECONDS (5), until interrupted",
     "[SECONDS]", kPeriod, nullptr, "5"},
    {"stop", "--no-wait", &Options::no_wait, "Do not wait until it has ended"},
    {"history", "--since", &Options::since, "How far back: 90s, 30min, 6h, 7d or 2w; default 1d",
     "PERIOD"},
    {"history", "--key", &Options::key, "One row, with all its counters", "KEY"},
    {"history", "--column", &Options::column, "Which rate of all rows; default: the main one",
     "COLUMN"},
    {"history", "--top", &Options::top, "Only the N busiest rows; 0: all", "N", kAnyRows},
    {"history", "--rrd", &Options::rrd_directory, "The directory that record was given", "DIR"},
    {"show", "--file", &Options::file, "delta (rates, the default), last or prev (counts)", "KIND",
     file_kind},
    {"show history", "--csv", &Options::csv, "As CSV"},
    {"show history", "-j,--json", &Options::json, "As one JSON object", "", nullptr, "--csv"},
    {"status check", "-j,--json", &Options::json, "As JSON"},
    {"record", "--rrd", &Options::rrd_directory, "Into round robin databases, one for each row",
     "DIR"},
    {"record", "--csv", &Options::csv_directory, "Into CSV files, one for each collection", "DIR",
     nullptr, "--rrd"},
    {"record", "--top", &Options::top, "Only the N busiest rows of each interval; 0: all", "N",
     kAnyRows},
    {"record", "--rows", &Options::rows,
     "Databases of each collection at most; default 1000, of some 300 kB each", "N",
     range<1, 1'000'000>},
    {"show watch", "--top", &Options::top, "Show only the first N rows; 0: all", "N", kAnyRows},
    {"show watch", "--sort", &Options::sort, "Order by a column: values falling, keys rising",
     "COLUMN"},
    {"show watch", "--reverse", &Options::reversed, "Reverse the order"},
    {"show watch", "--where", &Options::where,
     "Only rows with COLUMN=PATTERN, != too, or COLUMN>N, >=, <, <= (N: 1500, 1.5k)", "CONDITION"},
    {"show watch", "--line-speed", &Options::line_speed,
     "Speed of an agent's source, to mark rates above it", "MBIT/S", positive},
    {"show watch", "--no-notes", &Options::no_notes, "Do not compare rows with the samples"},
    {"show watch", "-w,--wide", &Options::wide,
     "All columns, by the names of their MIB objects and in their units"},
    {"show watch", "--si", &Options::si, "Round the values of --wide, with a prefix: 1.23M"},
    {"show watch", "--resolve", &Options::resolve, "Ask DNS for the names of network addresses"},
    {"show watch", "--color", &Options::colour, "auto: on a terminal without NO_COLOR; or never",
     "WHEN", colour_time},
    {"show", "--wait", &Options::wait, "Wait for a file that is being written; default 5",
     "SECONDS", range<0, 3600>},
    {"view watch", "--every", &Options::every, "Tell the daemon this often; default 5", "SECONDS",
     kPeriod},
    {"watch", "--no-viewing", &Options::no_viewing, "Do not tell the daemon that somebody looks"},
    {"watch", "--count", &Options::count, "End when the rates of each have been shown N times", "N",
     range<1, 1'000'000>},
    {"record watch", "--seconds", &Options::seconds, "End after this time", "SECONDS",
     range<1, 31'536'000>},
    {"metrics", "--top", &Options::own_series,
     "Rows of each collection with series of their own; default 50", "N", kAnyRows},
    {"metrics", "--textfile", &Options::textfile, "Replace FILE with the page, as a whole", "FILE"},
    {"metrics", "--listen", &Options::listen, "Serve it at /metrics; a PORT alone means 127.0.0.1",
     "[ADDR:]PORT", nullptr, "--textfile"},
};

void add_option(CLI::App& command, const Option& option, Options& options) {
  const auto add = [&](auto place) -> CLI::Option* {
    auto& into = options.*place;
    if constexpr (std::is_same_v<decltype(into), bool&>) {
      return command.add_flag(option.name, into, option.help);
    } else {
      return command.add_option(option.name, into, option.help)->type_name(option.value);
    }
  };
  CLI::Option* added = std::visit(add, option.place);
  if (std::holds_alternative<std::vector<std::string> Options::*>(option.place)) {
    added->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  }
  if (option.check != nullptr) added->check(option.check());
  if (option.excludes != nullptr) added->excludes(command.get_option(option.excludes));
  if (option.implied != nullptr) added->expected(0, 1)->default_str(option.implied);
  if (added->get_positional()) added->required();
}

void add_collections(CLI::App& sub, const Command& command, std::vector<std::string>& words) {
  const auto add = [&](const char* name, const char* help) {
    const auto take = [&words](const std::string& word) { words.push_back(word); };
    return sub.add_option_function<std::string>(name, take, help)->type_name("");
  };
  if (command.takes == Takes::one) {
    add("TYPE", "Its type")->required();
    add("INDEX", "Its control index; a kind of the supervisor has none");
  } else if (command.takes != Takes::none) {
    const bool required = command.takes == Takes::some;
    const std::string otherwise = required ? "" : fmt::format("; default: {}", command.otherwise);
    sub.add_option("collection", words, "One or more" + otherwise)
        ->required(required)
        ->type_name("TYPE [INDEX]");
  }
}

// has tells whether a command is one of those that an option names.
bool has(const Command& command, const Option& option) {
  const std::vector<std::string> names = CLI::detail::split(option.commands, ' ');
  return std::find(names.begin(), names.end(), command.name) != names.end();
}

}  // namespace

int tallyctl(int argc, const char* const* argv, const ToolPaths& paths) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  CLI::App app("Controls tallyd and shows the rates that it keeps.", "tallyctl");
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("-V,--version", std::string("tallyctl ") + kVersion, "Print the version");
  app.require_subcommand(1);
  Options options;
  std::vector<std::string> words;
  std::vector<std::string> known;
  const Command* chosen = nullptr;
  for (const Command& command : kCommands) {
    CLI::App& sub = *app.add_subcommand(command.name, command.help);
    sub.callback([&] { chosen = &command; });
    add_collections(sub, command, words);
    for (const Option& option : kOptions) {
      if (has(command, option)) add_option(sub, option, options);
    }
    known.emplace_back(command.name);
  }
  try {
    if (argc > 1 && argv[1][0] != '-' &&
        std::find(known.begin(), known.end(), argv[1]) == known.end()) {
      throw UsageError("there is no command '{}'; commands are {}", argv[1],
                       fmt::join(known, ", "));
    }
    app.parse(argc, argv);
    const bool one = chosen->takes == Takes::one;
    options.collections = one ? std::vector{parse_collection(words)} : parse_collections(words);
    return chosen->run(paths, options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  } catch (const UsageError& error) {
    complain(error.what());
    return kUsage;
  }
}

}  // namespace tally
