// The ONC RPC client (RFC 5531) of the local RMON agent: program 99999, version 1, over TCP,
// without authentication.
//
// A client belongs to one thread. Nothing here logs; the callers know what a failure means.
#pragma once

#include <rpc/rpc.h>

#include <chrono>
#include <cstdint>
#include <memory>

#include "files/unique_fd.h"

namespace tally {

inline constexpr std::uint32_t AGENT_PROGRAM = 99999;
inline constexpr std::uint32_t AGENT_VERSION = 1;

// The most that a call takes; a connect may be given up a tenth later.
inline constexpr std::chrono::seconds kCallTimeout{25};

// An XDR routine of any type: xdr_wire behind an untyped pointer.
using WireRoutine = bool_t (*)(XDR* stream, void* value);

// AgentClient is one connection to the agent.
class AgentClient {
 public:
  virtual ~AgentClient() = default;

  // call makes one remote call. True when it was answered with success and `decode` has taken the
  // result. Replies to other calls are passed over. A connection that was lost, or that has kept a
  // call waiting for too long, is closed: every later call fails at once. A refusal, or a result
  // that cannot be decoded, leaves it open.
  [[nodiscard]] virtual bool call(std::uint32_t procedure, WireRoutine encode, const void* argument,
                                  WireRoutine decode, void* result) = 0;

  // overdue tells whether the connection was closed because a call took too long.
  virtual bool overdue() const { return false; }
};

// agent_client makes the client of a connected socket whose calls last no longer than `most`. Null
// when the socket or memory fails.
std::unique_ptr<AgentClient> agent_client(UniqueFd socket,
                                          std::chrono::milliseconds most = kCallTimeout);

// agent_connect connects to the agent on `host`, a dotted IPv4 address or the name of an IPv4
// host, and AGENT_PORT; no port mapper is asked. Null when that fails or takes too long.
std::unique_ptr<AgentClient> agent_connect(const char* host);

}  // namespace tally
