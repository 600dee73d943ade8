// The RPC server: libtirpc's service side on one TCP socket, without a port mapper, in one poll
// loop together with the capture, the timetable of scripted misbehaviour and the end signals.
//
// Connections are non-blocking, so a client that sends half a call holds nobody up. One that sends
// calls and does not read the replies is closed. The library dispatches through a plain function,
// hence one server per process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include "minitapd/delayed_output.h"
#include "minitapd/procedures.h"
#include "minitapd/reply_fault.h"
#include "minitapd/tables.h"
#include "minitapd/unique_fd.h"

namespace minitapd {

// What the loop watches apart from the connections. poll_fd is asked before every wait; -1 =
// nothing to watch now. `work` runs after every wait, at least once a second, and must not block.
struct Watched {
  std::function<int()> poll_fd;
  std::function<void()> work;
};

// before_call runs at the start of every call, find_fault right before its reply: null = behave.
struct CallHooks {
  std::function<void()> before_call;
  std::function<const Fault*(std::uint32_t procedure)> find_fault;
};

class Server {
 public:
  Server(TableSource& source, CallHooks hooks);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // listen binds and registers. Throws std::runtime_error. Port 0 takes any free port.
  void listen(const std::string& address, std::uint16_t port);
  [[nodiscard]] std::uint16_t port() const { return port_; }

  // trace_to appends a line for every call to a file. Throws std::runtime_error.
  void trace_to(const std::string& path);

  // run serves until SIGTERM or SIGINT, both of which it blocks for the process.
  void run(const Watched& watched);

 private:
  static void dispatch(svc_req* request, SVCXPRT* transport);
  void serve(const svc_req& request, SVCXPRT* transport);
  void answer(const Procedure& procedure, const void* argument, SVCXPRT* transport);
  std::string capture_reply(const Procedure& procedure, SVCXPRT* transport);
  [[nodiscard]] int poll_timeout() const;  // milliseconds

  TableSource& source_;
  CallHooks hooks_;
  Answer answer_;
  DelayedOutput delayed_;
  std::ofstream trace_;
  UniqueFd signals_;
  UniqueFd capture_file_;  // where replies are caught that must not leave as they are
  SVCXPRT* listener_ = nullptr;
  std::uint16_t port_ = 0;
};

}  // namespace minitapd
