// The ONC RPC client (RFC 5531) of the local RMON agent: program 99999, version 1, over TCP.
//
// A client belongs to one thread. Nothing here logs; the callers know what a failure means.
#pragma once

#include <rpc/rpc.h>

#include <memory>

#include "agent/call_watch.h"
#include "files/unique_fd.h"

namespace tally {

inline constexpr rpcprog_t AGENT_PROGRAM = 99999;
inline constexpr rpcvers_t AGENT_VERSION = 1;

// The most that a connect or a call takes, in seconds.
inline constexpr int kCallTimeout = 25;

// AgentClient is one connection to the agent.
class AgentClient {
 public:
  // Takes over a connected socket and its client handle.
  AgentClient(UniqueFd socket, CLIENT* handle);
  ~AgentClient();
  AgentClient(const AgentClient&) = delete;
  AgentClient& operator=(const AgentClient&) = delete;

  // call makes one remote call. True when it was answered with success; `decode` tells whether a
  // result came with it, which the library does not promise.
  [[nodiscard]] bool call(rpcproc_t procedure, xdrproc_t encode, const void* argument,
                          xdrproc_t decode, void* result);

  // rest tells that no call follows for a while.
  void rest() { watch_.rest(); }

  bool usable() const { return watch_.watching(); }

 private:
  UniqueFd socket_;
  CLIENT* handle_;
  CallWatch watch_;
};

// agent_connect connects to the agent on `host`, a dotted IPv4 address or the name of an IPv4
// host, and AGENT_PORT; no port mapper is asked. Null when that fails or takes too long.
std::unique_ptr<AgentClient> agent_connect(const char* host);

}  // namespace tally
