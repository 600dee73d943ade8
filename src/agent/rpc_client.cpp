#include "agent/rpc_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include "daemon/paths.h"

namespace tally {
namespace {

bool resolve(const char* host, sockaddr_in& address) {
  if (inet_aton(host, &address.sin_addr) != 0) return true;
  const hostent* entry = gethostbyname(host);
  if (!entry || entry->h_addrtype != AF_INET) return false;
  const auto length = std::min(static_cast<std::size_t>(entry->h_length), sizeof address.sin_addr);
  std::memcpy(&address.sin_addr, entry->h_addr_list[0], length);
  return true;
}

// Waits until a connection attempt has ended.
bool await_connection(int socket) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::seconds(kCallTimeout);
  pollfd ready{socket, POLLOUT, 0};
  int result = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    result = poll(&ready, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  } while (result < 0 && errno == EINTR);
  if (result != 1) return false;
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
}

// The library would connect without a bound of time, so the socket is connected before it gets it.
// (Should the peer reset the connection in between, the library connects again: the time-out for
// sending bounds that, too.)
UniqueFd connect_socket(const sockaddr_in& address) {
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return socket;
  const bool connected =
      connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      (errno == EINPROGRESS && await_connection(socket.get()));
  const int flags = fcntl(socket.get(), F_GETFL);
  const timeval timeout{kCallTimeout, 0};
  if (!connected || fcntl(socket.get(), F_SETFL, flags & ~O_NONBLOCK) != 0 ||
      setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0) {
    socket.reset();
  }
  return socket;
}

}  // namespace

AgentClient::AgentClient(UniqueFd socket, CLIENT* handle)
    : socket_(std::move(socket)),
      handle_(handle),
      watch_(socket_.get(), std::int64_t{kCallTimeout} * 1'000'000'000) {}

AgentClient::~AgentClient() {
  auth_destroy(handle_->cl_auth);
  clnt_destroy(handle_);
}

bool AgentClient::call(rpcproc_t procedure, xdrproc_t encode, const void* argument,
                       xdrproc_t decode, void* result) {
  watch_.begin();
  const clnt_stat status = clnt_call(handle_, procedure, encode, const_cast<void*>(argument),
                                     decode, result, (timeval{kCallTimeout, 0}));
  watch_.end();
  return status == RPC_SUCCESS;
}

std::unique_ptr<AgentClient> agent_connect(const char* host) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(AGENT_PORT);
  if (!resolve(host, address)) return nullptr;
  UniqueFd socket = connect_socket(address);
  if (!socket) return nullptr;
  int descriptor = socket.get();
  CLIENT* handle = clnttcp_create(&address, AGENT_PROGRAM, AGENT_VERSION, &descriptor, 0, 0);
  if (!handle) return nullptr;
  std::unique_ptr<AgentClient> client(new (std::nothrow) AgentClient(std::move(socket), handle));
  return client && client->usable() ? std::move(client) : nullptr;
}

}  // namespace tally
