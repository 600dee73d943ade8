// The commands that send messages.
#include <unistd.h>

#include "commands/tallyctl.h"
#include "console/terminal.h"
#include "console/wait.h"
#include "pipe/pipe_writer.h"

namespace tally {
namespace {

// A daemon that is busy with the supervisor reads its pipe only when it is done.
constexpr std::chrono::milliseconds kPipePatience{5000};

}  // namespace

ExitCode send(const ToolPaths& paths, const ControlMessage& message) {
  const PipeAnswer answer = send_message(paths.control_pipe, message, kPipePatience);
  if (answer.state == PipeState::read) return kDone;
  complain(answer.text());
  return kUnreachable;
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
