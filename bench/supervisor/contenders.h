// Who asks the canned supervisor: the daemon's own code, libsnmp, and a bare socket.
//
// All make the same exchanges; each is a piece of work for a stopwatch. Nothing of this is
// thread-safe, and one PolledKind may exist at a time: the daemon's client is process-wide.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/agent_process.h"
#include "bench/supervisor/exchanges.h"

namespace tally::bench {

// Work is what is asked for in one go: what a poll of a kind asks for, with or without the refresh
// of its rows before it.
struct Work {
  std::uint32_t type;  // kEtherStats or kIfStats
  std::uint32_t rows;
  bool refresh;
  bool idle;  // no interface is up
};

struct Step {
  RequestKind kind;
  std::uint32_t row;
};

// steps_of returns the exchanges of the work. The rows are known from a refresh before it.
std::vector<Step> steps_of(const Work& work);

using RequestCounts = std::array<std::uint32_t, kRequestKinds + 1>;

// CannedSupervisor is the process, with a way to give it orders.
class CannedSupervisor {
 public:
  // Throws when it does not start.
  explicit CannedSupervisor(std::uint32_t rows, bool idle = false, std::uint32_t delay = 0);
  ~CannedSupervisor();
  CannedSupervisor(const CannedSupervisor&) = delete;
  CannedSupervisor& operator=(const CannedSupervisor&) = delete;

  std::uint16_t port() const { return process_.port(); }
  void advance() { order(kAdvance); }
  RequestCounts counts() { return order(0); }

 private:
  RequestCounts order(std::uint8_t byte);

  AgentProcess process_;
  int fd_;
};

// PolledKind is a supervisor kind of the daemon, whose client talks to 127.0.0.1:port. Its files
// are those of the daemon. The port counts once in a process: the daemon's transport keeps it.
class PolledKind {
 public:
  PolledKind(std::uint16_t port, const Work& work);
  ~PolledKind();
  PolledKind(const PolledKind&) = delete;
  PolledKind& operator=(const PolledKind&) = delete;

  void prepare();  // a minute passes between two polls
  void run();      // throws when the poll fails

  static constexpr std::int32_t kInterval = 60;

 private:
  Work work_;
};

// LibsnmpClient asks with libsnmp's synchronous client, builds every request anew, checks that
// there was a response and drops it.
class LibsnmpClient {
 public:
  LibsnmpClient(std::uint16_t port, const Work& work);
  ~LibsnmpClient();
  LibsnmpClient(const LibsnmpClient&) = delete;
  LibsnmpClient& operator=(const LibsnmpClient&) = delete;
  void run();  // throws when the supervisor does not answer

 private:
  void* session_;  // of libsnmp's single session API, whose header defines far too much
  std::vector<Step> steps_;
};

// EchoClient sends datagrams that lie ready and receives the answers: the responder's own round
// trip.
class EchoClient {
 public:
  EchoClient(std::uint16_t port, const Work& work);
  ~EchoClient();
  EchoClient(const EchoClient&) = delete;
  EchoClient& operator=(const EchoClient&) = delete;
  void run();  // throws when the supervisor does not answer

 private:
  int fd_;
  std::uint16_t port_;
  std::vector<std::vector<std::uint8_t>> requests_;
};

}  // namespace tally::bench
