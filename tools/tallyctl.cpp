// The command line.
#include "tallyctl.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <functional>

#include "daemon/collection_types.h"
#include "daemon/paths.h"

namespace tally {
namespace {

using std::chrono::seconds;

using Action = std::function<ExitCode()>;

// Words is what the options and arguments of all commands are read into.
struct Words {
  std::vector<std::string> collections;
  std::int32_t interval = 0;
  unsigned keep = 0;
  unsigned wait = 5;
  unsigned every = 5;
  unsigned count = 0;
  unsigned duration = 0;
  bool no_viewing = false;
  std::string colour = "auto";
  DisplayOptions display;
};

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
    {"interval", MessageType::set_interval, false, "Set the interval of polls that are looked at"},
    {"reload", MessageType::reload_settings, false, "Read the supervisor settings again"},
    {"rescan", MessageType::rescan, false, "Scan the agent's control tables again"},
    {"stop", MessageType::terminate, false, "End the daemon"},
};

// The daemon takes the nearest of these for an interval outside.
constexpr std::int32_t kShortestInterval = 15;
constexpr std::int32_t kLongestInterval = 3600;

// note_odd tells of messages that do not do what they say.
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
  ControlMessage message{static_cast<std::uint32_t>(command.type), 0, 0};
  if (command.names_collection) {
    const Collection collection = parse_collection(words.collections);
    message.collection_type = collection.type;
    message.collection_index = collection.index;
  } else if (command.type == MessageType::set_interval) {
    message.collection_type = static_cast<std::uint32_t>(words.interval);
  }
  note_odd(command.type, message);
  return words.keep == 0 ? send(paths, message) : keep_viewing(paths, message, seconds{words.keep});
}

void add_message_command(CLI::App& app, const MessageCommand& command, Words& words,
                         const ToolPaths& paths, Action& action) {
  CLI::App* sub = app.add_subcommand(command.name, command.help);
  if (command.names_collection) {
    sub->add_option("collection", words.collections, "Which one")
        ->required()
        ->type_name("TYPE [INDEX]");
  }
  if (command.type == MessageType::set_interval) {
    sub->add_option("seconds", words.interval, "15 to 3600")->required()->type_name("SECONDS");
  }
  if (command.type == MessageType::viewing) {
    sub->add_option("--keep", words.keep, "Tell it every SECONDS (5) until interrupted")
        ->expected(0, 1)
        ->default_str("5")
        ->check(CLI::Range(1, 3600))
        ->type_name("[SECONDS]");
  }
  sub->callback([&] { action = [&] { return run_message(paths, command, words); }; });
}

void add_display_options(CLI::App& command, Words& words) {
  command.add_option("--top", words.display.top, "Show the N busiest rows; 0: all")->type_name("N");
  command.add_option("--sort", words.display.sort, "Sort by a column: rates falling, keys rising")
      ->type_name("COLUMN");
  command.add_flag("--si", words.display.si, "Round rates, with a prefix: 1.23M");
  command.add_option("--color", words.colour, "auto: on a terminal without NO_COLOR; or never")
      ->check(CLI::IsMember({"auto", "never"}))
      ->type_name("WHEN");
}

void add_show(CLI::App& app, Words& words, const ToolPaths& paths, Action& action) {
  CLI::App* sub = app.add_subcommand("show", "Print a collection's delta file as a table");
  sub->add_option("collection", words.collections, "Which one")
      ->required()
      ->type_name("TYPE [INDEX]");
  add_display_options(*sub, words);
  sub->add_option("--wait", words.wait, "For a file that is being written; default 5")
      ->check(CLI::Range(0, 3600))
      ->type_name("SECONDS");
  sub->callback([&] {
    action = [&] {
      return show(paths, {parse_collection(words.collections), words.display, seconds{words.wait}});
    };
  });
}

void add_watch(CLI::App& app, Words& words, const ToolPaths& paths, Action& action) {
  CLI::App* sub = app.add_subcommand(
      "watch", "Print collections at each new delta file, and keep the daemon polling them");
  sub->add_option("collections", words.collections, "One or several")
      ->required()
      ->type_name("TYPE [INDEX]");
  add_display_options(*sub, words);
  sub->add_option("--every", words.every, "Tell the daemon so often; default 5")
      ->check(CLI::Range(1, 3600))
      ->type_name("SECONDS");
  sub->add_flag("--no-viewing", words.no_viewing, "Do not tell the daemon that somebody looks");
  sub->add_option("--count", words.count, "End when the rates of each were shown N times")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  sub->add_option("--seconds", words.duration, "End after this time")
      ->check(CLI::Range(1, 31'536'000))
      ->type_name("SECONDS");
  sub->callback([&, sub] {
    if (sub->count("--top") == 0) words.display.top = 10;
    action = [&] {
      WatchOptions options;
      options.collections = parse_collections(words.collections);
      options.display = words.display;
      options.viewing = !words.no_viewing;
      options.viewing_period = seconds{words.every};
      if (words.count != 0) options.count = words.count;
      if (words.duration != 0) options.duration = seconds{words.duration};
      return watch(paths, options);
    };
  });
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
  for (const MessageCommand& command : kMessageCommands) {
    add_message_command(app, command, words, paths, action);
  }
  add_show(app, words, paths, action);
  add_watch(app, words, paths, action);
  try {
    app.parse(argc, argv);
    words.display.no_colour = words.colour == "never";
    return action();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  } catch (const UsageError& error) {
    complain(error.what());
    return kUsage;
  }
}

}  // namespace tally
