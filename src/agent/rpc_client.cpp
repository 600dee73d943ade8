#include "agent/rpc_client.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "agent/wire_stream.h"
#include "daemon/base/paths.h"
#include "daemon/base/stop.h"
#include "files/unique_fd.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

// Connection makes the calls over libtirpc's record stream, whose reads and writes are its own.
class Connection final : public AgentClient {
 public:
  Connection(const sockaddr_in& address, std::chrono::milliseconds most)
      : address_(address),
        most_(most),
        xid_(static_cast<std::uint32_t>(Clock::now().time_since_epoch().count())) {}
  ~Connection() override { close_stream(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // begin starts the time of a call, and connects if there is no connection. False when that fails.
  bool begin() {
    if (lost_ || stopping()) return false;
    deadline_ = Clock::now() + most_;
    untouched_ = true;
    if (socket_) return true;
    if (open_socket() && open_stream()) return true;
    socket_.reset();
    return false;
  }

  bool call(std::uint32_t procedure, WireRoutine encode, const void* argument, WireRoutine decode,
            void* result) override {
    if (!begin()) return false;
    ++xid_;
    stream_.x_op = XDR_ENCODE;
    if (!write_head(procedure) || !encode(&stream_, const_cast<void*>(argument)) ||
        !xdrrec_endofrecord(&stream_, TRUE)) {
      socket_.reset();  // no other call can follow half a request
      return false;
    }
    stream_.x_op = XDR_DECODE;
    while (xdrrec_skiprecord(&stream_)) {  // goes to the next record
      switch (read_head()) {
        case Reply::success:
          return decode(&stream_, result) == TRUE;
        case Reply::refusal:
          return false;
        case Reply::other:
          break;
      }
    }
    return false;
  }

 private:
  enum class Reply { success, refusal, other };

  static constexpr u_int kBuffer = 64 * 1024;
  static constexpr std::size_t kShortestReply = 20;  // one that refuses the caller

  bool write_head(std::uint32_t procedure) {
    WireWriter out(&stream_);
    for (const std::uint32_t word :
         {xid_, std::uint32_t{CALL}, std::uint32_t{RPC_MSG_VERSION}, AGENT_PROGRAM, AGENT_VERSION,
          procedure, std::uint32_t{AUTH_NONE}, 0U /* its length */,
          std::uint32_t{AUTH_NONE} /* the verifier */, 0U}) {
      out.u32(word);
    }
    return out.flush();
  }

  // Reads a reply up to its result. Anything that is not a whole reply to this call is passed over.
  Reply read_head() {
    WireReader in(&stream_);
    if (!in.need(kShortestReply) || in.u32() != xid_ || in.u32() != REPLY) return Reply::other;
    const std::uint32_t status = in.u32();
    if (status == MSG_DENIED) return Reply::refusal;
    in.u32();  // any kind of verifier will do
    const std::uint32_t verifier = in.u32();
    if (status != MSG_ACCEPTED || verifier > MAX_AUTH_BYTES) return Reply::other;
    const std::uint32_t padded = (verifier + 3) / 4 * 4;
    if (!in.need(padded + 4)) return Reply::other;
    for (std::uint32_t at = 0; at < padded; at += 4) in.u32();
    return in.u32() == SUCCESS ? Reply::success : Reply::refusal;
  }

  // Waits until the socket is ready for an event. False once the time of the call at hand is over,
  // or the process is about to end.
  bool await(short event) {
    untouched_ = false;
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
      if (left.count() <= 0 || stopping()) return false;
      pollfd ready{socket_.get(), event, 0};
      const int result = poll(&ready, 1, static_cast<int>(std::min(left, kStopCheck).count()));
      if (result > 0) return true;
      if (result < 0 && errno != EINTR) return false;
    }
  }

  bool open_socket() {
    socket_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (!socket_ || !set_sleep(SO_SNDTIMEO) || !set_sleep(SO_RCVTIMEO) ||
        setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
      return false;
    }
    // From a reserved port where this process may have one: some agents serve no other callers.
    (void)bindresvport(socket_.get(), nullptr);
    if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_) ==
        0) {
      return true;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return (errno == EINPROGRESS || errno == EINTR) && await(POLLOUT) &&
           getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
  }

  // How long a connect, and the first read of a call, sleep in their own system call. Nearly every
  // answer comes sooner, which spares a poll(2).
  bool set_sleep(int option) const {
    const std::chrono::microseconds sleep = std::min(most_, kStopCheck);
    const timeval time{0, sleep.count()};
    return setsockopt(socket_.get(), SOL_SOCKET, option, &time, sizeof time) == 0;
  }

  // False when memory runs out.
  bool open_stream() {
    close_stream();
    xdrrec_create(&stream_, kBuffer, kBuffer, this, receive, send);
    return stream_.x_ops != nullptr;
  }

  void close_stream() {
    if (stream_.x_ops) xdr_destroy(&stream_);
    stream_ = XDR{};
  }

  // The stream's reads. The first one of a call sleeps until something comes: nearly always that
  // is the whole reply, for one system call. Later ones wait in poll(2), for what is left of the
  // time.
  static int receive(void* connection, void* to, int most) {
    auto& self = *static_cast<Connection*>(connection);
    while (self.socket_) {
      const bool first = std::exchange(self.untouched_, false);
      if (!first && !self.await(POLLIN)) break;
      const ssize_t got =
          recv(self.socket_.get(), to, static_cast<std::size_t>(most), first ? 0 : MSG_DONTWAIT);
      if (got > 0) return static_cast<int>(got);
      self.lost_ = got == 0 || !came_too_early();
      if (self.lost_) break;
    }
    self.socket_.reset();
    return -1;
  }

  // The stream's writes. They fit into the socket's buffer unless the peer does not read.
  static int send(void* connection, void* from, int length) {
    auto& self = *static_cast<Connection*>(connection);
    for (int sent = 0; sent < length;) {
      const ssize_t more =
          ::send(self.socket_.get(), static_cast<const char*>(from) + sent,
                 static_cast<std::size_t>(length - sent), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (more >= 0) {
        sent += static_cast<int>(more);
        continue;
      }
      self.lost_ = !came_too_early();
      if (self.lost_ || !self.await(POLLOUT)) return -1;
    }
    return length;
  }

  // Tells what the read or write that has just failed means.
  static bool came_too_early() { return errno == EAGAIN || errno == EINTR; }

  const sockaddr_in address_;
  const std::chrono::milliseconds most_;
  UniqueFd socket_;    // none at first, and when the last call was given up
  bool lost_ = false;  // the agent has closed the connection
  std::uint32_t xid_;
  Clock::time_point deadline_;
  bool untouched_ = true;  // the call at hand has not waited yet
  XDR stream_{};
};

// Both threads resolve names; gethostbyname would share one result between them.
bool resolve(const char* host, sockaddr_in& address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &found) != 0) return false;
  std::memcpy(&address, found->ai_addr, sizeof address);
  freeaddrinfo(found);
  address.sin_port = htons(AGENT_PORT);
  return true;
}

}  // namespace

std::unique_ptr<AgentClient> agent_connect(const sockaddr_in& address,
                                           std::chrono::milliseconds most) {
  std::unique_ptr<Connection> client(new (std::nothrow) Connection(address, most));
  return client && client->begin() ? std::move(client) : nullptr;
}

std::unique_ptr<AgentClient> agent_connect(const char* host) {
  sockaddr_in address{};
  return resolve(host, address) ? agent_connect(address) : nullptr;
}

}  // namespace tally
