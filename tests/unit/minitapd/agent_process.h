// The agent's binary, running for a test on a free port of the loopback interface.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "minitapd/tapd.h"
#include "minitapd/unique_fd.h"

namespace minitapd::testing {

struct ClientCloser {
  void operator()(CLIENT* client) const { clnt_destroy(client); }
};
using Client = std::unique_ptr<CLIENT, ClientCloser>;

class AgentProcess {
 public:
  // Starts the agent and waits for its first line; without one port() is 0.
  explicit AgentProcess(std::vector<std::string> arguments);
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;
  ~AgentProcess();  // kills it, if it still runs

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] Client connect(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  [[nodiscard]] UniqueFd connect_socket() const;  // with a receive time-out of 10 s

  void signal(int number) const;
  // wait returns the exit status, or -1 when the agent was killed.
  int wait();

 private:
  pid_t pid_ = -1;
  UniqueFd output_;
  std::uint16_t port_ = 0;
};

// A file in the test's own directory, removed at the end.
class TempFile {
 public:
  explicit TempFile(const std::string& name, const std::string& text = "");
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile();
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string text() const;

 private:
  std::string path_;
};

}  // namespace minitapd::testing
