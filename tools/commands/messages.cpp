// The commands that send messages.
#include <fmt/format.h>
#include <unistd.h>

#include <utility>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "console/wait.h"
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

}  // namespace

ExitCode send(const ToolPaths& paths, const std::vector<ControlMessage>& messages) {
  for (const ControlMessage& message : messages) {
    const PipeAnswer answer = send_message(paths.control_pipe, message, kPipePatience);
    if (answer.state == PipeState::read) continue;
    complain(answer.text());
    return kUnreachable;
  }
  return kDone;
}

ExitCode stop(const ToolPaths& paths, bool wait) {
  const DaemonState daemon = probe_daemon(paths.pid_file);
  const ExitCode sent = send(paths, {{static_cast<std::uint32_t>(MessageType::terminate), 0, 0}});
  if (sent != kDone || !wait) return sent;
  if (!daemon.error.empty()) {
    complain(fmt::format("cannot see when it has ended: {}: {}", paths.pid_file, daemon.error));
    return kAbsent;
  }
  const Deadline end(kStopPatience);
  const Deadline word(kStopWord);
  bool told = false;
  // The lock may be another's soon: of a daemon that was started again.
  for (DaemonState now = daemon; now.running && now.pid == daemon.pid;
       now = probe_daemon(paths.pid_file)) {
    if (word.over() && !std::exchange(told, true)) {
      complain(fmt::format("waiting up to {} s for process {} to end", kStopPatience.count(),
                           *daemon.pid));
    }
    if (end.over()) {
      complain("it has not ended; its messages in syslog (local2) say what it does");
      return kAbsent;
    }
    wait_for({}, kStopLook);
  }
  return kDone;
}

ExitCode keep_viewing(const ToolPaths& paths, const std::vector<Collection>& collections,
                      std::chrono::seconds period) {
  Signals signals;
  std::string trouble;  // the last that was told
  for (;;) {
    PipeAnswer answer;
    for (const auto& [type, index] : collections) {
      answer = send_message(paths.control_pipe,
                            {static_cast<std::uint32_t>(MessageType::viewing), type, index},
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
      const Signals::Taken taken = signals.take();
      if (taken.end) return kDone;
      if (taken.stop) (void)raise(SIGSTOP);
    }
  }
}

}  // namespace tally
