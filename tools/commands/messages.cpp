// The commands that send messages.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/schedule.h"
#include "pipe/pipe_writer.h"
#include "probes/daemon_probe.h"

namespace tally {
namespace {

// A daemon that is busy with the supervisor reads its pipe only when it is done.
constexpr std::chrono::milliseconds kPipePatience{5000};

// A daemon that obeys takes two seconds where the supervisor is silent; one that writes to a slow
// disk takes longer.
constexpr std::chrono::seconds kStopPatience{30};
constexpr std::chrono::seconds kStopWord{1};
constexpr std::chrono::milliseconds kStopLook{50};

// note_odd warns of messages that do not do what they say.
void note_odd(MessageType type, const Collection& about) {
  const bool starts = type == MessageType::create || type == MessageType::viewing;
  if (starts && about.type == kDsMatrix) {
    complain("note: the daemon only logs this message when it names dsmatrix");
  }
  const auto interval = static_cast<std::int32_t>(about.type);
  const std::int32_t taken = std::clamp(interval, kShortestInterval, kLongestInterval);
  if (type == MessageType::set_interval && taken != interval) {
    complain("note: the daemon takes {} s for {} s", taken, interval);
  }
}

}  // namespace

ControlMessage message_about(MessageType type, const Collection& collection) {
  return {static_cast<std::uint32_t>(type), collection.type, collection.index};
}

ExitCode send(const ToolPaths& paths, MessageType type, const Options& options) {
  std::vector<Collection> all = options.collections;
  // What stands in its place is 0 but for an interval.
  if (all.empty()) all.push_back({static_cast<std::uint32_t>(options.interval), 0});
  for (const Collection& each : all) note_odd(type, each);
  if (options.keep != 0) return view(paths, options);
  for (const Collection& each : all) {
    const PipeAnswer answer =
        send_message(paths.control_pipe, message_about(type, each), kPipePatience);
    if (answer.state == PipeState::read) continue;
    complain(answer.text());
    return kUnreachable;
  }
  return kDone;
}

ExitCode stop(const ToolPaths& paths, const Options& options) {
  const DaemonState daemon = probe_daemon(paths.pid_file);
  const ExitCode sent = send(paths, MessageType::terminate, options);
  if (sent != kDone || options.no_wait) return sent;
  if (!daemon.error.empty()) {
    complain("cannot see when it has ended: {}: {}", paths.pid_file, daemon.error);
    return kAbsent;
  }
  const Deadline end(kStopPatience);
  const Deadline word(kStopWord);
  bool told = false;
  // The lock may be another's soon: of a daemon that was started again.
  for (DaemonState now = daemon; now.running && now.pid == daemon.pid;
       now = probe_daemon(paths.pid_file)) {
    if (word.over() && !std::exchange(told, true)) {
      complain("waiting up to {} s for process {} to end", kStopPatience.count(), *daemon.pid);
    }
    if (end.over()) {
      complain("it has not ended; its messages in syslog (local2) say what it does");
      return kAbsent;
    }
    wait_for({}, kStopLook);
  }
  return kDone;
}

ExitCode view(const ToolPaths& paths, const Options& options) {
  const std::chrono::seconds period(options.keep != 0 ? options.keep : options.every);
  Signals signals;
  std::string trouble;  // the last that was told
  for (;;) {
    PipeAnswer answer;
    for (const Collection& each : options.collections) {
      answer = send_message(paths.control_pipe, message_about(MessageType::viewing, each),
                            kPipePatience);
      if (answer.state != PipeState::read) break;
    }
    // A daemon that is started again must not cost the history that somebody records.
    if (answer.text() != trouble) {
      trouble = answer.text();
      complain(trouble.empty() ? "tallyd reads its pipe again" : trouble + "; still trying");
    }
    const Deadline next(period);
    while (!next.over()) {
      wait_for({signals.fd()}, period);
      if (signals.ended()) return kDone;
    }
  }
}

}  // namespace tally
