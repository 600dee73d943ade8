// Whether the daemon, the agent and the supervisor are there. Nothing is changed, the daemon is not
// asked anything, and every wait is bounded.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tally {

struct DaemonState {
  bool running = false;      // somebody holds the lock of the PID file
  std::optional<pid_t> pid;  // what stands in it
  std::string error;         // why neither is known
};
DaemonState probe_daemon(const std::string& pid_file);

struct AgentState {
  bool answers = false;
  std::optional<std::uint32_t> up_time;  // in the agent's own unit
};
// probe_agent asks the appliance's agent for its up-time; takes a minute at the very most.
AgentState probe_agent();

enum class SupervisorState { answers, unknown_host, silent, refused };
struct SupervisorAnswer {
  SupervisorState state;
  std::uint32_t up_time = 0;  // hundredths of a second
};
// probe_supervisor asks for sysUpTime with the community, twice, 2 seconds each.
SupervisorAnswer probe_supervisor(const std::string& address, const std::string& community);

}  // namespace tally
