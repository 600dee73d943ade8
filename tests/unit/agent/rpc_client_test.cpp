// The connection to the agent and the bound on calls, against servers on a loopback address of the
// test's own.
#include "agent/rpc_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "agent/procedures.h"
#include "daemon/paths.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// 127.x.y.z of this process, so that test programs do not meet on the agent's port.
std::string own_host() {
  const auto id = static_cast<unsigned>(getpid());
  return "127.83." + std::to_string(id >> 8 & 255) + "." + std::to_string(1 + id % 254);
}

sockaddr_in own_address() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(AGENT_PORT);
  inet_aton(own_host().c_str(), &address.sin_addr);
  return address;
}

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Listener serves one connection after the other: each is handed to the function and then closed.
class Listener {
 public:
  explicit Listener(std::function<void(int)> serve)
      : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), serve_(std::move(serve)) {
    const int on = 1;
    setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = own_address();
    listening_ =
        bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(socket_.get(), 8) == 0;
    thread_ = std::thread([this] {
      for (;;) {
        const UniqueFd peer(accept(socket_.get(), nullptr, nullptr));
        if (!peer) return;
        serve_(peer.get());
      }
    });
  }
  ~Listener() {
    shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
  }
  bool listening() const { return listening_; }

 private:
  UniqueFd socket_;
  std::function<void(int)> serve_;
  bool listening_ = false;
  std::thread thread_;
};

// Waits until the client has sent something or gone; false when it has gone.
bool await_call(int peer, char (&call)[256]) {
  return recv(peer, call, sizeof call, 0) > 0;
}

// The reply of an accepted call (RFC 5531) to the call whose first bytes these are.
Bytes accepted(const char* call, std::uint32_t result) {
  std::uint32_t xid;
  std::memcpy(&xid, call + 4, sizeof xid);
  Bytes bytes;
  for (const std::uint32_t word : {0x80000000U + 28, ntohl(xid), 1U, 0U, 0U, 0U, 0U, result}) {
    append_word(bytes, word);
  }
  return bytes;
}

void answer_calls(int peer) {
  char call[256];
  while (await_call(peer, call)) {
    const Bytes reply = accepted(call, 7);
    if (send(peer, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) return;
  }
}

TEST(RpcClient, ConnectsAndLeaksNoDescriptor) {
  const Listener server(answer_calls);
  ASSERT_TRUE(server.listening());
  const auto before = open_descriptors();
  for (int i = 0; i < 100; ++i) {
    const auto client = agent_connect(own_host().c_str());
    ASSERT_NE(client, nullptr);
    const auto reply = agent_null(*client, {});
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->value, 7);
  }
  // The server closes its side a little later than the client.
  for (int i = 0; i < 200 && open_descriptors() > before; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(open_descriptors(), before);
}

TEST(RpcClient, FailsAtOnceWithoutAnAgent) {
  const auto before = open_descriptors();
  const auto start = Clock::now();
  EXPECT_EQ(agent_connect(own_host().c_str()), nullptr);
  EXPECT_EQ(agent_connect("no-such-host.invalid"), nullptr);
  EXPECT_LT(Clock::now() - start, 20s);
  EXPECT_EQ(open_descriptors(), before);
}

// The last is taken for success by the library: two record fragments without content.
TEST(RpcClient, CallsFailWithoutAWholeAnswer) {
  std::signal(SIGPIPE, SIG_IGN);  // as the daemon has it
  for (const std::size_t sent : {0U, 3U, 20U, 28U, 31U, 8U}) {
    SCOPED_TRACE(sent);
    const Listener server([sent](int peer) {
      char call[256];
      if (!await_call(peer, call)) return;
      const Bytes reply = sent == 8 ? Bytes(8) : accepted(call, 7);
      send(peer, reply.data(), sent, MSG_NOSIGNAL);
    });
    const auto client = agent_connect(own_host().c_str());
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(agent_null(*client, {}), nullptr);
    EXPECT_EQ(agent_null(*client, {}), nullptr);
  }
}

// A connection as AgentClient has it, with a watch of the test's own patience.
struct WatchedConnection {
  explicit WatchedConnection(std::chrono::nanoseconds patience)
      : watch(connect(), patience.count()) {
    sockaddr_in address = own_address();
    int descriptor = socket.get();
    handle = clnttcp_create(&address, AGENT_PROGRAM, AGENT_VERSION, &descriptor, 0, 0);
  }
  ~WatchedConnection() {
    auth_destroy(handle->cl_auth);
    clnt_destroy(handle);
  }
  int connect() {
    const sockaddr_in address = own_address();
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    return socket.get();
  }
  clnt_stat call() {
    NullReply reply;
    Nothing nothing;
    watch.begin();
    const clnt_stat status = clnt_call(handle, 0, xdr_routine<Nothing>(), &nothing,
                                       xdr_routine<NullReply>(), &reply, (timeval{25, 0}));
    watch.end();
    return status;
  }

  UniqueFd socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  CallWatch watch;
  CLIENT* handle = nullptr;
};

// Calls that end in time are left alone, whatever stands between them: the pauses are longer than
// the patience, with and without the word that no call follows.
TEST(CallWatch, LeavesOtherCallsAlone) {
  const Listener server(answer_calls);
  WatchedConnection connection(500ms);
  ASSERT_TRUE(connection.watch.watching());
  for (int i = 0; i < 400; ++i) {
    ASSERT_EQ(connection.call(), RPC_SUCCESS) << i;
    if (i % 7 == 0) connection.watch.rest();
    if (i % 200 == 0) std::this_thread::sleep_for(800ms);
    if (i % 50 == 0) std::this_thread::sleep_for(20ms);
  }
}

}  // namespace
}  // namespace tally
