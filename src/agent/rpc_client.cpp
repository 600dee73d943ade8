#include "agent/rpc_client.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "agent/wire_stream.h"
#include "daemon/base/paths.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

// Waits until the socket is ready for an event. False once the deadline has passed.
bool await(int socket, short event, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd ready{socket, event, 0};
    const int result = poll(&ready, 1, static_cast<int>(left.count()));
    if (result > 0) return true;
    if (result < 0 && errno != EINTR) return false;
  }
}

// Connection makes the calls over libtirpc's record stream, whose reads and writes are its own.
class Connection final : public AgentClient {
 public:
  Connection(UniqueFd socket, std::chrono::milliseconds most)
      : socket_(std::move(socket)),
        most_(most),
        xid_(static_cast<std::uint32_t>(Clock::now().time_since_epoch().count())) {
    xdrrec_create(&stream_, kBuffer, kBuffer, this, receive, send);
  }
  ~Connection() override {
    if (usable()) xdr_destroy(&stream_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // False when the stream has got no memory.
  bool usable() const { return stream_.x_ops != nullptr; }

  bool call(std::uint32_t procedure, WireRoutine encode, const void* argument, WireRoutine decode,
            void* result) override {
    if (!socket_) return false;
    deadline_ = Clock::now() + most_;
    untouched_ = true;
    ++xid_;
    stream_.x_op = XDR_ENCODE;
    if (!write_head(procedure) || !encode(&stream_, const_cast<void*>(argument)) ||
        !xdrrec_endofrecord(&stream_, TRUE)) {
      socket_.reset();  // no other call can follow half a request
      return false;
    }
    stream_.x_op = XDR_DECODE;
    while (xdrrec_skiprecord(&stream_)) {  // to the next one
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

  bool overdue() const override { return overdue_; }

 private:
  enum class Reply { success, refusal, other };

  static constexpr u_int kBuffer = 64 * 1024;
  static constexpr std::size_t kShortestReply = 20;  // why the caller is refused

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

  // Reads a reply up to its result. What is no reply, or is cut short, belongs to no call.
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

  // The stream's reads. The first one of a call sleeps until something comes, or as long as a call
  // may last: nearly always that is the whole reply, for one system call. Behind it, or when time
  // was lost in sending, reads wait for no longer than what is left of the time.
  static int receive(void* connection, void* to, int most) {
    auto& self = *static_cast<Connection*>(connection);
    while (self.socket_) {
      const bool first = std::exchange(self.untouched_, false);
      if (!first && !await(self.socket_.get(), POLLIN, self.deadline_)) {
        self.overdue_ = true;
        break;
      }
      const ssize_t got =
          recv(self.socket_.get(), to, static_cast<std::size_t>(most), first ? 0 : MSG_DONTWAIT);
      if (got > 0) return static_cast<int>(got);
      if (got == 0 || !came_too_early()) break;
    }
    self.socket_.reset();
    return -1;
  }

  // The stream's writes: all of it, which fits the socket's buffer unless the peer does not read.
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
      self.untouched_ = false;
      if (!came_too_early() || !await(self.socket_.get(), POLLOUT, self.deadline_)) return -1;
    }
    return length;
  }

  // Tells what the read or write that has just failed means.
  static bool came_too_early() { return errno == EAGAIN || errno == EINTR; }

  UniqueFd socket_;  // none when the connection is lost
  const std::chrono::milliseconds most_;
  std::uint32_t xid_;
  Clock::time_point deadline_;
  bool untouched_ = true;  // none of the time for the call at hand was spent on waiting
  bool overdue_ = false;
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

bool set_timeout(int socket, int option, std::chrono::milliseconds time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const timeval timeout{seconds.count(), std::chrono::microseconds(time - seconds).count()};
  return setsockopt(socket, SOL_SOCKET, option, &timeout, sizeof timeout) == 0;
}

// Bounds what the socket waits for by itself: connecting, and the first read of a call. The
// kernel's timers for it are coarse, up to a tenth late for tens of seconds. A read therefore
// sleeps for four fifths of the time and waits for the rest in poll(2), which is exact.
bool bound_waits(int socket, std::chrono::milliseconds most) {
  return set_timeout(socket, SO_SNDTIMEO, most) && set_timeout(socket, SO_RCVTIMEO, most * 4 / 5);
}

}  // namespace

std::unique_ptr<AgentClient> agent_client(UniqueFd socket, std::chrono::milliseconds most) {
  const int on = 1;
  if (!bound_waits(socket.get(), most) ||
      setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
    return nullptr;
  }
  std::unique_ptr<Connection> client(new (std::nothrow) Connection(std::move(socket), most));
  return client && client->usable() ? std::move(client) : nullptr;
}

std::unique_ptr<AgentClient> agent_connect(const char* host) {
  sockaddr_in address{};
  if (!resolve(host, address)) return nullptr;
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket || !bound_waits(socket.get(), kCallTimeout) ||
      connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return nullptr;
  }
  return agent_client(std::move(socket));
}

}  // namespace tally
