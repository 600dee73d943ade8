// A canned agent, or a canned supervisor, as a child process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tally::bench {

// AgentProcess starts a program that lies beside this one and ends it again. It runs on the CPUs
// that this process may use.
class AgentProcess {
 public:
  // Waits until the agent listens. The arguments are the program's own. Throws when it does not
  // start.
  explicit AgentProcess(std::vector<std::string> arguments,
                        const std::string& program = "canned_agent");
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;
  ~AgentProcess();

  std::uint16_t port() const { return port_; }

 private:
  pid_t process_ = -1;
  std::uint16_t port_ = 0;
};

}  // namespace tally::bench
