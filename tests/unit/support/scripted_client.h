// An AgentClient whose calls the test answers: no socket, but the real codec on both ways.
#pragma once

#include <rpc/rpc.h>

#include <functional>
#include <optional>
#include <vector>

#include "agent/rpc_client.h"
#include "support/xdr_streams.h"

namespace tally {

class ScriptedClient final : public AgentClient {
 public:
  struct Call {
    std::uint32_t procedure;
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

  AgentClient& client() { return *this; }
  const std::vector<Call>& calls() const { return calls_; }

  bool call(std::uint32_t procedure, WireRoutine encode, const void* argument, WireRoutine decode,
            void* result) override {
    char request[4096];
    XDR stream;
    xdrmem_create(&stream, request, sizeof request, XDR_ENCODE);
    if (!encode(&stream, const_cast<void*>(argument))) return false;
    calls_.push_back({procedure, Bytes(request, request + xdr_getpos(&stream))});
    Reply reply = answer_(calls_.back());
    if (!reply) return false;
    xdrmem_create(&stream, reinterpret_cast<char*>(reply->data()),
                  static_cast<u_int>(reply->size()), XDR_DECODE);
    return decode(&stream, result) == TRUE;
  }

 private:
  std::function<Reply(const Call&)> answer_;
  std::vector<Call> calls_;
};

}  // namespace tally
