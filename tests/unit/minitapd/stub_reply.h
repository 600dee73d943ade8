// Calls through the client stubs that rpcgen makes.
#pragma once

#include <type_traits>

#include "agent_process.h"
#include "minitapd/tapd.h"

namespace minitapd::testing {

// One call through a stub, and its result, which is freed at the end.
template <class Result>
class Reply {
 public:
  template <class Argument>
  Reply(clnt_stat (*stub)(Argument*, Result*, CLIENT*), bool_t (*routine)(XDR*, Result*),
        std::type_identity_t<Argument> argument, const Client& client)
      : routine_(routine), status_(stub(&argument, &result_, client.get())) {}
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;
  ~Reply() {
    xdr_free(reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(routine_)), &result_);
  }
  const Result* operator->() const { return &result_; }

  [[nodiscard]] clnt_stat status() const { return status_; }

 private:
  bool_t (*routine_)(XDR*, Result*);
  Result result_{};
  clnt_stat status_;
};

}  // namespace minitapd::testing
