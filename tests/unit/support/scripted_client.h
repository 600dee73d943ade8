// An AgentClient whose calls the test answers: no socket, but the real codec on both ways.
#pragma once

#include <rpc/rpc.h>

#include <functional>
#include <optional>
#include <vector>

#include "agent/rpc_client.h"
#include "support/xdr_streams.h"

namespace tally {

class ScriptedClient {
 public:
  struct Call {
    rpcproc_t procedure;
    Bytes argument;

    friend bool operator==(const Call&, const Call&) = default;
  };
  // The reply's bytes, or nothing for a call that fails.
  using Reply = std::optional<Bytes>;

  explicit ScriptedClient(std::function<Reply(const Call&)> answer) : answer_(std::move(answer)) {}

  // Answers the calls in turn; every call after them fails.
  explicit ScriptedClient(std::vector<Reply> replies)
      : answer_([replies = std::move(replies), next = std::size_t{0}](const Call&) mutable {
          return next < replies.size() ? replies[next++] : std::nullopt;
        }) {}

  AgentClient& client() { return client_; }
  const std::vector<Call>& calls() const { return calls_; }

 private:
  CLIENT* make_handle() {
    handle_ = {authnone_create(), &kOperations, this, nullptr, nullptr};
    return &handle_;
  }

  static clnt_stat call(CLIENT* handle, rpcproc_t procedure, xdrproc_t encode, void* argument,
                        xdrproc_t decode, void* result, timeval /*timeout*/) {
    auto& self = *static_cast<ScriptedClient*>(handle->cl_private);
    char request[4096];
    XDR stream;
    xdrmem_create(&stream, request, sizeof request, XDR_ENCODE);
    if (!encode(&stream, argument)) return RPC_CANTENCODEARGS;
    self.calls_.push_back({procedure, Bytes(request, request + xdr_getpos(&stream))});
    Reply reply = self.answer_(self.calls_.back());
    if (!reply) return RPC_CANTRECV;
    xdrmem_create(&stream, reinterpret_cast<char*>(reply->data()),
                  static_cast<u_int>(reply->size()), XDR_DECODE);
    return decode(&stream, result) ? RPC_SUCCESS : RPC_CANTDECODERES;
  }
  static void destroy(CLIENT* /*handle*/) {}
  static inline CLIENT::clnt_ops kOperations{call, nullptr, nullptr, nullptr, destroy, nullptr};

  std::function<Reply(const Call&)> answer_;
  std::vector<Call> calls_;
  CLIENT handle_{};
  AgentClient client_{UniqueFd(), make_handle()};
};

}  // namespace tally
