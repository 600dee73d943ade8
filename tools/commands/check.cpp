// check: why is something empty? Looks at all that the daemon needs, and says what to do.
#include <fmt/color.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/base/schedule.h"
#include "daemon/base/settings.h"
#include "pipe/pipe_writer.h"
#include "probes/daemon_probe.h"
#include "records/annotate.h"
#include "records/cell_text.h"
#include "records/collection_files.h"
#include "records/collection_name.h"

namespace tally {
namespace {

// A full poll writes a table again beside the one before: with less room it is likely to fail.
constexpr std::uint64_t kLeastRoom = 16 << 20;

enum class Level { fine, warning, problem };

struct Finding {
  Level level;
  std::string subject;
  std::string text;
  std::string advice;  // what to do; empty when nothing is to be done
};

struct Report {
  std::vector<Finding> findings{};

  void add(Level level, std::string subject, std::string text, std::string advice = {}) {
    findings.push_back({level, std::move(subject), std::move(text), std::move(advice)});
  }
};

void check_daemon(const ToolPaths& paths, const DaemonState& daemon, Report& report) {
  if (daemon.running) {
    return report.add(Level::fine, "daemon", fmt::format("runs as process {}", *daemon.pid));
  }
  if (!daemon.error.empty()) {
    return report.add(Level::problem, "daemon",
                      fmt::format("{} cannot be read: {}", paths.pid_file, daemon.error),
                      "run this as root");
  }
  report.add(Level::problem, "daemon", fmt::format("nobody holds the lock of {}", paths.pid_file),
             "start tallyd; if it ends at once, its messages in syslog (local2) or 'systemctl "
             "status tallyd' say why");
}

void check_pipe(const ToolPaths& paths, bool running, Report& report) {
  const PipeAnswer pipe = probe_pipe(paths.control_pipe);
  if (pipe.state == PipeState::read) {
    return report.add(Level::fine, "pipe",
                      fmt::format("{} is there, and somebody reads it", paths.control_pipe));
  }
  const bool lost = running && (pipe.state == PipeState::absent || pipe.state == PipeState::unread);
  report.add(Level::problem, "pipe", pipe.trouble,
             lost ? "start tallyd again: it makes its pipe only when it starts" : pipe.advice);
}

// The user that the daemon runs as; nothing when it does not run.
std::optional<uid_t> user_of(const DaemonState& daemon) {
  struct stat process {};
  if (!daemon.running || stat(fmt::format("/proc/{}", *daemon.pid).c_str(), &process) != 0) {
    return std::nullopt;
  }
  return process.st_uid;
}

// What a user may do by being the owner or one of the others; what its groups allow is not known.
bool may_add_files(const struct stat& directory, uid_t user) {
  constexpr mode_t kOfAll = S_IWOTH | S_IXOTH;
  if (user == 0 || (directory.st_mode & S_IWGRP) != 0) return true;
  return directory.st_uid == user ? (directory.st_mode & S_IWUSR) != 0
                                  : (directory.st_mode & kOfAll) == kOfAll;
}

void check_directory(const ToolPaths& paths, const DaemonState& daemon, Report& report) {
  const std::string& directory = paths.data_directory;
  constexpr const char* kMake = "'systemd-tmpfiles --create tallyd.conf' where the package is ";
  struct stat status {};
  if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return report.add(Level::problem, "directory",
                      fmt::format("{} is not a directory that can be reached", directory),
                      fmt::format("{}installed, else 'mkdir -p {}'", kMake, directory));
  }
  if (const auto user = user_of(daemon); user && !may_add_files(status, *user)) {
    report.add(
        Level::problem, "directory",
        fmt::format("{} belongs to user {}, mode {:o}: the daemon, user {}, cannot write there",
                    directory, status.st_uid, status.st_mode & 07777U, *user),
        fmt::format("{}installed, else 'chown {} {}'", kMake, *user, directory));
  }
  struct statvfs room {};
  if (statvfs(directory.c_str(), &room) != 0) {
    return report.add(Level::problem, "space",
                      fmt::format("{}: {}", directory, std::strerror(errno)),
                      "check the file system");
  }
  const std::uint64_t bytes = std::uint64_t{room.f_bavail} * room.f_frsize;
  const bool inodes = room.f_files == 0 || room.f_favail > 0;
  const bool enough = bytes >= kLeastRoom && inodes;
  report.add(
      enough ? Level::fine : Level::problem, "space",
      fmt::format("{} octets are free in {}{}",
                  number_text(static_cast<double>(bytes), NumberStyle::si), directory,
                  inodes ? "" : ", but no file can be added"),
      enough ? "" : "free some space: a poll that runs out of it puts the previous sample back");
}

// Files and pipe have mode 0777, so it is their directories that keep strangers out. Whoever may
// open the PID file may hold its lock, and then no daemon starts.
void check_access(const ToolPaths& paths, Report& report) {
  const auto open_to_all = [](const std::string& path, mode_t right) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && (status.st_mode & right) != 0;
  };
  std::vector<std::string> open;
  if (open_to_all(paths.data_directory, S_IXOTH)) open.emplace_back("the collection files");
  const std::string pipe_directory = std::filesystem::path(paths.control_pipe).parent_path();
  if (open_to_all(pipe_directory, S_IXOTH) && open_to_all(paths.control_pipe, S_IROTH | S_IWOTH)) {
    open.emplace_back("the control pipe");
  }
  if (open_to_all(paths.pid_file, S_IROTH | S_IWOTH)) open.emplace_back("the PID file's lock");
  if (open.empty()) return;
  report.add(Level::warning, "access", fmt::format("open to all users: {}", fmt::join(open, ", ")),
             "nothing, if all users are trusted; else see 'Who may do what' in the page on "
             "integration");
}

// What others may read is out of reach of this process, not necessarily of the daemon.
constexpr const char* kBecomeRoot =
    "run this as root; if root is refused too, mend the rights or write the file anew";

void add_database(Report& report, const char* subject, const std::string& path, DatabaseState state,
                  const std::string& error, const std::string& content, const char* example) {
  switch (state) {
    case DatabaseState::good:
      return report.add(Level::fine, subject, content);
    case DatabaseState::absent:
      return report.add(
          Level::warning, subject, fmt::format("{} does not exist: defaults apply", path),
          fmt::format("nothing, if the defaults are right; else let the web application "
                      "write it, or 'gdbmtool --newdb {} store {}'",
                      path, example));
    case DatabaseState::not_a_file:
      return report.add(Level::problem, subject, fmt::format("{} is not a regular file", path),
                        "remove it, and let the web application write it");
    case DatabaseState::held:
      return report.add(
          Level::problem, subject, fmt::format("{} is open for writing somewhere", path),
          "readers are refused meanwhile: close it there, then run 'tallyctl reload'");
    case DatabaseState::unreadable:
      return report.add(Level::problem, subject, fmt::format("{} cannot be read: {}", path, error),
                        kBecomeRoot);
  }
}

void check_preferences(const ToolPaths& paths, Report& report) {
  const Preferences preferences = read_preferences(paths.preferences.c_str());
  const std::int32_t interval = preferences.interval != 0 ? preferences.interval : kDefaultInterval;
  std::string content = fmt::format("the interval is {} s", interval);
  if (!preferences.refresh) {
    content += " (no key 'refresh')";
  } else if (fmt::to_string(interval) != *preferences.refresh) {
    content += fmt::format(" (made of '{}')", printable(*preferences.refresh));
  }
  if (preferences.state == DatabaseState::good && interval < 1) {
    return report.add(Level::problem, "preferences", content, "store a number from 15 to 3600");
  }
  add_database(report, "preferences", paths.preferences, preferences.state, preferences.error,
               content, "refresh 60");
}

void check_agent(Report& report) {
  const AgentState agent = probe_agent();
  if (!agent.answers) {
    return report.add(
        Level::problem, "agent",
        fmt::format("nothing answers the null call at {}:{}", kAgentHost, AGENT_PORT),
        "start the agent (tapd, or minitapd); tallyd finds it again by itself, unless "
        "it was away for the first quarter of an hour after tallyd started");
  }
  if (!agent.up_time) {
    return report.add(Level::warning, "agent", "answers, but does not give its up-time",
                      "its restarts will not be noticed; see the agent's log");
  }
  report.add(Level::fine, "agent",
             fmt::format("answers at {}:{}, up for {} of its units (mostly 1/100 s)", kAgentHost,
                         AGENT_PORT, *agent.up_time));
}

constexpr const char* kNoSwitch =
    "; where there is no switch, store 'disable' under NMP_ETHERSTATS, NMP_VLANSTATS and "
    "NMP_IFSTATS";

using TargetId = std::optional<std::int32_t>;

// Whether a kind is enabled when the daemon starts; messages change that.
bool starts_enabled(const SupervisorSettings& settings, const KindSetting& kind) {
  return settings.state != DatabaseState::good || !kind.disabled();
}

std::string why(const SupervisorSettings& settings, const KindSetting& kind, TargetId target) {
  if (settings.state != DatabaseState::good) return "no database can be read";
  if (!kind.offered) {
    return fmt::format("an appliance of target id {} has {}",
                       target ? fmt::to_string(*target) : "unknown",
                       kind.on_interface_target ? "etherstats and supvlan" : "ifstats only");
  }
  if (!kind.value) return fmt::format("{} is not set", kind.key);
  return fmt::format("{} is {}", kind.key, printable(*kind.value));
}

void check_target_id(const ToolPaths& paths, TargetId target, Report& report) {
  const char* path = paths.appliance_settings.c_str();
  if (target) {
    report.add(Level::fine, "target id", fmt::format("is {}", *target));
  } else if (access(path, R_OK) != 0 && errno != ENOENT) {
    report.add(Level::problem, "target id",
               fmt::format("{} cannot be read: {}", path, std::strerror(errno)), kBecomeRoot);
  } else {
    report.add(Level::warning, "target id", fmt::format("{} has no line QOR_TARGET_ID=N", path),
               "without it this is an appliance of etherstats and supvlan");
  }
}

void check_supervisor(const ToolPaths& paths, const SupervisorSettings& settings, TargetId target,
                      Report& report) {
  const std::string address = settings.address.value_or(kDefaultNmpAddress);
  add_database(
      report, "supervisor settings", paths.nmp_settings, settings.state, settings.error,
      fmt::format("address {}{}, community {}", printable(address),
                  settings.address ? "" : " (default)", settings.community ? "set" : "by default"),
      "NMP_ADDR 192.0.2.1");
  check_target_id(paths, target, report);
  bool any = false;
  for (const KindSetting& kind : settings.kinds) {
    const bool enabled = starts_enabled(settings, kind);
    any = any || enabled;
    report.add(Level::fine, type_stem(kind.type),
               fmt::format("{} when the daemon starts: {}", enabled ? "enabled" : "disabled",
                           why(settings, kind, target)),
               enabled ? ""
                       : fmt::format("'tallyctl create {}' enables it until tallyd starts again",
                                     type_stem(kind.type)));
  }
  if (!any) return;
  const SupervisorAnswer answer =
      probe_supervisor(address, settings.community.value_or(kDefaultNmpCommunity));
  const std::string where = fmt::format("{}:{}", printable(address), kNmpPort);
  switch (answer.state) {
    case SupervisorState::answers:
      return report.add(Level::fine, "supervisor",
                        fmt::format("{} accepts the community; it is up for {}", where,
                                    duration_text(answer.up_time / 100)));
    case SupervisorState::unknown_host:
      return report.add(
          Level::problem, "supervisor",
          fmt::format("{} is neither an address nor a known host", printable(address)),
          "correct NMP_ADDR; with an unknown host tallyd does not start");
    case SupervisorState::refused:
      return report.add(
          Level::problem, "supervisor", fmt::format("{} refuses SNMP", where),
          std::string("start its SNMP agent, or correct NMP_ADDR and NMP_COMMSTR") + kNoSwitch);
    case SupervisorState::silent:
      return report.add(Level::problem, "supervisor",
                        fmt::format("{} does not answer within 4 s", where),
                        std::string("a wrong community is met with silence: compare NMP_COMMSTR "
                                    "with the supervisor's; then look at the network") +
                            kNoSwitch);
  }
}

bool disabled(const SupervisorSettings& settings, std::uint32_t type) {
  return std::any_of(settings.kinds.begin(), settings.kinds.end(), [&](const KindSetting& kind) {
    return kind.type == type && !starts_enabled(settings, kind);
  });
}

constexpr const char* kKilled =
    "the daemon was killed, or the machine went down, while it wrote: the next poll makes it anew";

void check_collections(const ToolPaths& paths, const SupervisorSettings& settings, Report& report) {
  std::string error;
  const auto collections = present_collections(paths.data_directory, error);
  if (!error.empty()) {
    return report.add(Level::problem, "collections",
                      fmt::format("{} cannot be read: {}", paths.data_directory, error),
                      "run this as root, or become a member of the directory's group");
  }
  if (collections.empty()) {
    return report.add(Level::warning, "collections", "there are no collection files",
                      "'tallyctl create host 1' starts one; its first rates come with the second "
                      "poll");
  }
  for (const Collection& collection : collections) {
    const OpenFiles files = open_files(paths.data_directory, collection, FileKind::delta,
                                       Samples::both, std::chrono::milliseconds{200});
    const std::string name = title(collection);
    if (const auto lack = lack_of(paths.data_directory, collection)) {
      report.add(Level::warning, name, lack->text, lack->advice);
      continue;
    }
    if (!files.main.good()) {
      report.add(Level::problem, name, "the delta file: " + files.main.remark,
                 fmt::format("if it stays so, 'tallyctl create {}'", name));
      continue;
    }
    for (const FileNote& note : file_notes(files, {})) {
      if (note.cut_short) report.add(Level::problem, name, note.text, kKilled);
    }
    const std::int64_t age = std::time(nullptr) - files.main.header.sample_time;
    const std::string rates =
        fmt::format("{} rates, {} old", files.main.count(), duration_text(age));
    const bool stale = age > std::int64_t{kUnviewedInterval} + files.main.header.interval;
    if (!stale) {
      report.add(Level::fine, name, rates);
    } else if (disabled(settings, collection.type)) {
      report.add(Level::warning, name, rates,
                 fmt::format("it is disabled; 'tallyctl destroy {}' removes what is left", name));
    } else {
      report.add(Level::problem, name, rates,
                 "it is no longer polled: it was destroyed and left behind, or the daemon or "
                 "its source is away");
    }
  }
}

constexpr const char* kLevelWords[] = {"ok", "warning", "problem"};

std::string as_text(const std::vector<Finding>& findings, bool colour) {
  constexpr fmt::terminal_color kColours[] = {
      fmt::terminal_color::green, fmt::terminal_color::yellow, fmt::terminal_color::red};
  std::size_t width = 0;
  for (const Finding& finding : findings) width = std::max(width, finding.subject.size());
  std::string text;
  for (const Finding& finding : findings) {
    const auto level = static_cast<std::size_t>(finding.level);
    std::string word = fmt::format("{:<7}", kLevelWords[level]);
    if (colour) word = fmt::format(fg(kColours[level]), "{}", word);
    text += fmt::format("{}  {:<{}}  {}\n", word, finding.subject, width, finding.text);
    if (!finding.advice.empty()) {
      text += fmt::format("{:{}}  -> {}\n", "", width + 9, finding.advice);
    }
  }
  return text;
}

std::string as_json(const std::vector<Finding>& findings) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"level", kLevelWords[static_cast<std::size_t>(finding.level)]},
                    {"subject", finding.subject},
                    {"text", finding.text},
                    {"advice", finding.advice}});
  }
  return list.dump(2) + '\n';
}

}  // namespace

ExitCode check(const ToolPaths& paths, const Options& options) {
  Report report;
  const DaemonState daemon = probe_daemon(paths.pid_file);
  const TargetId target = read_target_id(paths.appliance_settings.c_str());
  const SupervisorSettings settings = read_supervisor_settings(paths.nmp_settings.c_str(), target);
  check_daemon(paths, daemon, report);
  check_pipe(paths, daemon.running, report);
  check_directory(paths, daemon, report);
  check_access(paths, report);
  check_preferences(paths, report);
  check_agent(report);
  check_supervisor(paths, settings, target, report);
  check_collections(paths, settings, report);
  Output output(STDOUT_FILENO);
  output << (options.json ? as_json(report.findings)
                          : as_text(report.findings, look_at_terminal().colour));
  if (!finish(output)) return kAbsent;
  const bool problem = std::any_of(report.findings.begin(), report.findings.end(),
                                   [](const Finding& f) { return f.level == Level::problem; });
  return problem ? kAbsent : kDone;
}

}  // namespace tally
