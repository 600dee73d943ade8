// The ONC RPC client (RFC 5531) of the local RMON agent: program 99999, version 1, over TCP,
// without authentication.
//
// A client belongs to one thread. Nothing here logs; the callers know what a failure means.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <chrono>
#include <cstdint>
#include <memory>

namespace tally {

inline constexpr std::uint32_t AGENT_PROGRAM = 99999;
inline constexpr std::uint32_t AGENT_VERSION = 1;

// The most that a call takes, connecting included.
inline constexpr std::chrono::seconds kCallTimeout{25};

// An XDR routine of any type: xdr_wire behind an untyped pointer.
using WireRoutine = bool_t (*)(XDR* stream, void* value);

// AgentClient makes calls to the agent, over one connection as long as that answers.
class AgentClient {
 public:
  virtual ~AgentClient() = default;

  // call makes one remote call. True when it was answered with success and `decode` has taken the
  // result. Replies to other calls are passed over. A refusal, or a result that cannot be decoded,
  // leaves the connection open.
  //
  // A call that takes too long is given up, and its connection is closed, because the answer may
  // still come on it. The next call connects anew, within its own time. A connection that the agent
  // has closed is lost for good: every later call fails at once.
  [[nodiscard]] virtual bool call(std::uint32_t procedure, WireRoutine encode, const void* argument,
                                  WireRoutine decode, void* result) = 0;
};

// agent_connect connects to the agent at an address, for calls that last no longer than `most`.
// Null when that fails or takes too long, and when memory runs out. When the process is about to
// end (daemon/base/stop.h), the call at hand fails within a quarter of a second and every later one
// at once.
std::unique_ptr<AgentClient> agent_connect(const sockaddr_in& address,
                                           std::chrono::milliseconds most = kCallTimeout);

// The same with the agent on `host`, a dotted IPv4 address or the name of an IPv4 host, and
// AGENT_PORT; no port mapper is asked.
std::unique_ptr<AgentClient> agent_connect(const char* host);

}  // namespace tally
