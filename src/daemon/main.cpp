// tallyd: polls the statistics that users asked for, and writes their rates.
//
// There are no options; arguments are ignored. Exit status: 0 after a terminate message or when
// another copy is running, 255 (-1) after any fatal error.

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "agent/tapd_agent.h"
#include "daemon/base/log.h"
#include "daemon/base/settings.h"
#include "daemon/base/stop.h"
#include "daemon/control_pipe.h"
#include "daemon/main_loop.h"
#include "daemon/messages.h"
#include "daemon/registry.h"
#include "daemon/startup.h"
#include "daemon/supervisor_kinds.h"
#include "daemon/threads.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

constexpr std::chrono::milliseconds kAgentHeadStart{2000};  // for the poll task to connect

[[noreturn]] void terminate(int status) {
  log_warning("Terminating tallyd.");
  std::exit(status);
}

// Everything that needs the control pipe. The caller removes the pipe, whatever happens here.
int serve(ControlPipe& pipe, Registry& registry) {
  if (!pipe.make()) return -1;
  watch_for_stop([](void* where) { return static_cast<ControlPipe*>(where)->terminate_waits(); },
                 &pipe);
  for (auto left = kAgentHeadStart; left.count() > 0 && !stopping(); left -= kStopCheck) {
    std::this_thread::sleep_for(kStopCheck);
  }
  const std::int32_t refresh = read_interval();
  registry.set_interval(refresh == 0 ? kDefaultInterval : refresh);
  scan_control_tables(registry);
  for (SupervisorKind& kind : supervisor_kinds()) {
    if (kind.enabled && !stopping()) kind.poll_at_once();
  }
  registry.re_sort();
  const int status = run_main_loop(pipe, registry);
  watch_for_stop(nullptr, nullptr);
  return status;
}

[[noreturn]] void run() {
  if (!detach()) terminate(-1);
  // Writing to an agent that is gone must fail, not kill the daemon.
  std::signal(SIGPIPE, SIG_IGN);
  log_debug("Starting tallyd.");
  switch (take_pid_file()) {
    case PidFile::taken:
      break;
    case PidFile::held_by_another:
      std::exit(0);
    case PidFile::failed:
      terminate(-1);
  }

  // Never destroyed: the poll task is still running when the process ends.
  auto& registry = *new Registry(poll_task_entry());
  auto& agent = *new TapdAgent;
  poll_task_entry().context = new PollTask{registry, agent};
  for (SupervisorKind& kind : supervisor_kinds()) kind.initialise();
  if (init_supervisor_client() != 0) {
    log_warning("Error initializing SNMP client for tallyd.\n");
    terminate(-1);
  }
  start_threads();

  ControlPipe pipe;
  const int status = serve(pipe, registry);
  pipe.remove();
  stop_snmp_client();
  terminate(status);
}

}  // namespace
}  // namespace tally

int main() {
  tally::run();
}
