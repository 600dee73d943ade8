#include "minitapd/server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace minitapd {

namespace {

constexpr int kStreamBuffer = 64 * 1024;
constexpr int kMaxCallRecord = 64 * 1024;  // a real call takes less than 300 bytes
constexpr int kTick = 1000;                // ms; how long housekeeping may wait

Server* the_server = nullptr;

// A decoded argument, or what a failed decoding has left; released in either case.
struct Argument {
  SVCXPRT* transport;
  xdrproc_t routine;
  alignas(std::max_align_t) std::array<char, kMaxArgumentSize> bytes{};

  Argument(SVCXPRT* from, xdrproc_t by) : transport(from), routine(by) {}
  Argument(const Argument&) = delete;
  Argument& operator=(const Argument&) = delete;
  ~Argument() { (void)svc_freeargs(transport, routine, bytes.data()); }
};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

UniqueFd listening_socket(const std::string& address, std::uint16_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    throw std::runtime_error("not an IPv4 address: " + address);
  }
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) fail("cannot make a socket");
  const int on = 1;
  (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
      ::listen(fd.get(), SOMAXCONN) != 0) {
    fail("cannot listen on " + address + ":" + std::to_string(port));
  }
  return fd;
}

std::uint16_t bound_port(int fd) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size) != 0) fail("getsockname");
  return ntohs(name.sin_port);
}

UniqueFd end_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  if (::sigprocmask(SIG_BLOCK, &set, nullptr) != 0) fail("cannot block signals");
  UniqueFd fd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd) fail("cannot watch for signals");
  return fd;
}

// The library waits for a client that does not read by calling write() again and again for two
// seconds. So nothing is written to a client that has left most of its replies unread: Linux calls
// a socket writable while a third of its send buffer is free, and no reply of an ordinary table is
// that long. The connection is shut down, and the library closes it when it next uses it.
bool drop_unless_it_reads(int fd) {
  pollfd room{fd, POLLOUT, 0};
  if (::poll(&room, 1, 0) != 0) return false;
  ::shutdown(fd, SHUT_RDWR);
  return true;
}

}  // namespace

Server::Server(TableSource& source, CallHooks hooks)
    : source_(source), hooks_(std::move(hooks)), signals_(end_signals()) {
  capture_file_ = UniqueFd(::memfd_create("reply", MFD_CLOEXEC));
  if (!capture_file_) fail("cannot make a memory file");
  (void)std::signal(SIGPIPE, SIG_IGN);  // a client that went away is an error of its write only
  the_server = this;
}

Server::~Server() {
  if (listener_ != nullptr) {
    svc_unreg(TAPD_PROGRAM, TAPD_VERSION);
    // Ends the listener only: connections end with their descriptors.
    for (int i = 0; i < svc_max_pollfd; ++i) {
      const int fd = svc_pollfd[i].fd;
      if (fd >= 0 && fd != listener_->xp_fd) ::shutdown(fd, SHUT_RDWR);
    }
    svc_destroy(listener_);
  }
  the_server = nullptr;
}

void Server::listen(const std::string& address, std::uint16_t port) {
  UniqueFd fd = listening_socket(address, port);
  port_ = bound_port(fd.get());
  int record = kMaxCallRecord;
  // Bounds a call and, as a side effect, makes every accepted connection non-blocking.
  if (!rpc_control(RPC_SVC_CONNMAXREC_SET, &record)) {
    throw std::runtime_error("cannot make connections non-blocking");
  }
  // The transport owns the descriptor from here on.
  const int raw = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0);
  if (raw < 0) fail("cannot duplicate the socket");
  listener_ = svc_vc_create(raw, kStreamBuffer, kStreamBuffer);
  if (listener_ == nullptr) throw std::runtime_error("cannot make an RPC transport");
  // No network configuration entry: the service is not announced to a port mapper.
  if (!svc_reg(listener_, TAPD_PROGRAM, TAPD_VERSION, dispatch, nullptr)) {
    throw std::runtime_error("cannot register the RPC program");
  }
}

void Server::trace_to(const std::string& path) {
  trace_.open(path, std::ios::app);
  if (!trace_) fail("cannot write " + path);
}

void Server::run(const Watched& watched) {
  std::vector<pollfd> fds;
  for (;;) {
    fds.assign({{signals_.get(), POLLIN, 0}, {watched.poll_fd(), POLLIN, 0}});
    const std::size_t own = fds.size();
    fds.insert(fds.end(), svc_pollfd, svc_pollfd + svc_max_pollfd);
    const int ready = ::poll(fds.data(), fds.size(), poll_timeout());
    if (ready < 0 && errno != EINTR) fail("poll");
    if (ready < 0) continue;
    if (fds[0].revents != 0) return;
    delayed_.run_due(DelayedOutput::Clock::now());
    watched.work();
    for (std::size_t i = own; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      // Calls that the library itself refuses, such as another program's, never reach serve().
      if (fds[i].fd != listener_->xp_fd) (void)drop_unless_it_reads(fds[i].fd);
      svc_getreq_common(fds[i].fd);
    }
  }
}

int Server::poll_timeout() const {
  const auto due = delayed_.next_due();
  if (!due) return kTick;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*due - DelayedOutput::Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, kTick));
}

void Server::dispatch(svc_req* request, SVCXPRT* transport) {
  // No exception may pass through the library's C frames.
  try {
    the_server->serve(*request, transport);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "minitapd: procedure %lu: %s\n",
                       static_cast<unsigned long>(request->rq_proc), error.what());
    svcerr_systemerr(transport);
  }
}

void Server::serve(const svc_req& request, SVCXPRT* transport) {
  if (drop_unless_it_reads(transport->xp_fd)) return;
  if (hooks_.before_call) hooks_.before_call();
  const Procedure* procedure = find_procedure(request.rq_proc);
  if (procedure == nullptr) {
    svcerr_noproc(transport);
    return;
  }
  Argument argument(transport, procedure->xdr_argument);
  if (!svc_getargs(transport, procedure->xdr_argument, argument.bytes.data())) {
    svcerr_decode(transport);
    return;
  }
  if (trace_.is_open()) {
    std::string line = std::to_string(procedure->number) + " " + std::string(procedure->name);
    procedure->describe(argument.bytes.data(), line);
    trace_ << line << std::endl;
  }
  answer(*procedure, argument.bytes.data(), transport);
}

void Server::answer(const Procedure& procedure, const void* argument, SVCXPRT* transport) {
  answer_.rows.clear();
  procedure.answer(source_, argument, answer_);
  const Fault* fault =
      hooks_.find_fault ? hooks_.find_fault(static_cast<std::uint32_t>(procedure.number)) : nullptr;
  if (fault == nullptr) {
    (void)svc_sendreply(transport, procedure.xdr_result, answer_.result());
    return;
  }
  switch (fault->action) {
    case FaultAction::exit:
      ::_exit(EXIT_SUCCESS);
    case FaultAction::system_err:
      return svcerr_systemerr(transport);
    case FaultAction::decode_err:
      return svcerr_decode(transport);
    case FaultAction::no_proc:
      return svcerr_noproc(transport);
    case FaultAction::no_prog:
      return svcerr_noprog(transport);
    case FaultAction::weak_auth:
      return svcerr_weakauth(transport);
    default:
      delayed_.push(transport->xp_fd, shape_reply(*fault, capture_reply(procedure, transport)),
                    DelayedOutput::Clock::now());
  }
}

// A faulty reply starts from the correct one, byte for byte as the library sends it. The library
// writes a reply to the transport's public descriptor, so for the time of the sending a memory
// file stands in its place. That needs no knowledge of the library's private state (the
// transaction id lives there), and ordinary replies never come this way.
std::string Server::capture_reply(const Procedure& procedure, SVCXPRT* transport) {
  const int file = capture_file_.get();
  if (::ftruncate(file, 0) != 0 || ::lseek(file, 0, SEEK_SET) != 0) fail("memory file");
  const int connection = std::exchange(transport->xp_fd, file);
  const bool sent = svc_sendreply(transport, procedure.xdr_result, answer_.result()) != 0;
  transport->xp_fd = connection;
  if (!sent) throw std::runtime_error("the reply could not be encoded");
  std::string stream(static_cast<std::size_t>(::lseek(file, 0, SEEK_CUR)), '\0');
  if (::pread(file, stream.data(), stream.size(), 0) != static_cast<ssize_t>(stream.size())) {
    fail("memory file");
  }
  return stream;
}

}  // namespace minitapd
