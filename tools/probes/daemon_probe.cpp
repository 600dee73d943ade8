#include "probes/daemon_probe.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>

#include "agent/procedures.h"
#include "agent/rpc_client.h"
#include "daemon/base/paths.h"
#include "files/unique_fd.h"

namespace tally {

DaemonState probe_daemon(const std::string& pid_file) {
  const UniqueFd fd(open(pid_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  if (!fd) return {false, {}, errno == ENOENT ? "" : std::strerror(errno)};
  DaemonState state;
  char text[16];
  const ssize_t got = read(fd.get(), text, sizeof text);
  pid_t pid = 0;
  if (got > 0 && std::from_chars(text, text + got, pid).ec == std::errc{}) state.pid = pid;
  // The lock is tried only where there is a process to hold it: a daemon that starts just now must
  // not find it taken by us.
  if (state.pid && (kill(*state.pid, 0) == 0 || errno == EPERM)) {
    state.running = flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  }
  return state;
}

AgentState probe_agent() {
  AgentState state;
  const auto client = agent_connect(kAgentHost);
  if (!client) return state;
  state.answers = agent_null(*client, {}) != nullptr;
  if (!state.answers) return state;
  if (const auto reply = agent_system_info(*client, {})) state.up_time = reply->up_time;
  return state;
}

}  // namespace tally
