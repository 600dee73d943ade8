// The connection to the agent and its calls, against servers on a loopback address of the test's
// own and beside libtirpc's client.
#include "agent/rpc_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
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
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(socket_.get(), 8), 0);
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

 private:
  UniqueFd socket_;
  std::function<void(int)> serve_;
  std::thread thread_;
};

// Waits until the client has sent something and returns its first bytes; none when it has gone.
Bytes await_call(int peer) {
  Bytes call(256);
  call.resize(static_cast<std::size_t>(std::max<ssize_t>(recv(peer, call.data(), 256, 0), 0)));
  return call;
}

// Replies are words; two of them stand for the number of the call, and for another one.
using Words = std::vector<std::uint32_t>;
constexpr std::uint32_t kXid = 0xF0F0'0001, kOtherXid = 0xF0F0'0002, kLastFragment = 1U << 31;

Words record(Words words) {
  words.insert(words.begin(), static_cast<std::uint32_t>(4 * words.size()) | kLastFragment);
  return words;
}

const Words kSeven = record({kXid, REPLY, MSG_ACCEPTED, AUTH_NONE, 0, SUCCESS, 7});

Bytes reply(const Words& words, const Bytes& call) {
  std::uint32_t xid;
  std::memcpy(&xid, call.data() + 4, sizeof xid);
  xid = ntohl(xid);
  Bytes bytes;
  for (const std::uint32_t word : words) {
    append_word(bytes, word == kXid ? xid : word == kOtherXid ? xid + 1 : word);
  }
  return bytes;
}

bool send_all(int peer, const Bytes& bytes) {
  return send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

void answer_calls(int peer) {
  for (Bytes call; !(call = await_call(peer)).empty();) send_all(peer, reply(kSeven, call));
}

bool hung_up(int peer, int milliseconds) {
  pollfd ready{peer, POLLRDHUP, 0};
  return poll(&ready, 1, milliseconds) > 0;
}

UniqueFd connected_socket() {
  UniqueFd connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = own_address();
  EXPECT_EQ(connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
  return connection;
}

TEST(RpcClient, ConnectsAndLeaksNoDescriptor) {
  const Listener server(answer_calls);
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

TEST(RpcClient, CallsFailWithoutAWholeAnswer) {
  for (std::size_t sent = 0; sent < 32; ++sent) {
    SCOPED_TRACE(sent);
    const Listener server([sent](int peer) {
      const Bytes call = await_call(peer);
      if (!call.empty()) send(peer, reply(kSeven, call).data(), sent, MSG_NOSIGNAL);
    });
    const auto client = agent_connect(own_host().c_str());
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(agent_null(*client, {}), nullptr);
    EXPECT_EQ(agent_null(*client, {}), nullptr);
  }
}

// What two calls over one connection sent and brought.
struct Exchange {
  Bytes calls;
  std::optional<std::int32_t> results[2];

  friend bool operator==(const Exchange&, const Exchange&) = default;
};

// Answers two calls with these words and a good reply behind them.
void two_calls(const Words& answer, bool through_library, Exchange& seen) {
  const Listener server([&](int peer) {
    for (Bytes call; !(call = await_call(peer)).empty();) {
      Words words = answer;
      words.insert(words.end(), kSeven.begin(), kSeven.end());
      send_all(peer, reply(words, call));
      std::fill_n(call.begin() + 4, 4, std::uint8_t{0});  // each client numbers as it likes
      seen.calls.insert(seen.calls.end(), call.begin(), call.end());
    }
  });
  UniqueFd connection = connected_socket();
  sockaddr_in address = own_address();
  int descriptor = connection.get();
  CLIENT* library = clnttcp_create(&address, AGENT_PROGRAM, AGENT_VERSION, &descriptor, 0, 0);
  const auto ours = agent_client(std::move(connection), 5s);
  ControlKey key{5, 2};
  for (auto& result : seen.results) {
    NullReply reply{-1};  // stays when the library reports success without a result
    const bool good =
        through_library
            ? clnt_call(library, 9, reinterpret_cast<xdrproc_t>(wire_routine<ControlKey>), &key,
                        reinterpret_cast<xdrproc_t>(wire_routine<NullReply>), &reply,
                        (timeval{5, 0})) == RPC_SUCCESS
            : ours->call(9, wire_routine<ControlKey>, &key, wire_routine<NullReply>, &reply);
    if (good && reply.value != -1) result = reply.value;
  }
  auth_destroy(library->cl_auth);
  clnt_destroy(library);
}

// The same bytes go out, and every answer means the same as it does to libtirpc.
TEST(RpcClient, AgreesWithTheLibrary) {
  const Words answers[] = {
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, 9}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, 9, 10, 11}),
      record({kOtherXid, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS, 9}),
      record({kXid, REPLY, MSG_ACCEPTED, AUTH_SYS, 5, 1, 2, SUCCESS, 9}),
      record({kXid, REPLY, MSG_ACCEPTED, AUTH_SYS, 401, 1, 2, SUCCESS, 9}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, PROG_UNAVAIL}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, PROG_MISMATCH, 2, 3}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, PROC_UNAVAIL}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, GARBAGE_ARGS}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, SYSTEM_ERR}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, 6}),
      record({kXid, REPLY, MSG_DENIED, RPC_MISMATCH, 3, 4}),
      record({kXid, REPLY, MSG_DENIED, AUTH_ERROR, AUTH_TOOWEAK}),
      record({kXid, REPLY, 2, 0, 0, SUCCESS, 9}),
      record({kXid, CALL, MSG_ACCEPTED, 0, 0, SUCCESS, 9}),
      record({}),
      record({kXid}),
      record({kXid, REPLY}),
      record({kXid, REPLY, MSG_ACCEPTED}),
      record({kXid, REPLY, MSG_ACCEPTED, 0}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0}),
      record({kXid, REPLY, MSG_ACCEPTED, 0, 0, SUCCESS}),
      {0, 0},  // fragments without content
      {8, kXid, REPLY, 4, MSG_ACCEPTED, 8, 0, 0, 4, SUCCESS, kLastFragment | 4, 9},
  };
  for (const Words& answer : answers) {
    SCOPED_TRACE(testing::PrintToString(answer));
    Exchange ours, library;
    two_calls(answer, false, ours);
    two_calls(answer, true, library);
    EXPECT_EQ(ours, library);
    EXPECT_EQ(ours.calls.size(), 2U * (4 + 40 + 8));
    EXPECT_TRUE(&answer != answers || ours.results[1] == 9);
  }
}

// Each would last for ever, and the flood would fill the memory.
TEST(RpcClient, BoundsCalls) {
  const std::pair<const char*, std::function<bool(int, const Bytes&)>> servers[] = {
      {"silent", [](int peer, const Bytes&) { return hung_up(peer, 40); }},
      {"drips",
       [](int peer, const Bytes& call) {
         for (const std::uint8_t byte : reply(kSeven, call)) {
           if (!send_all(peer, {byte}) || hung_up(peer, 40)) return true;
         }
         return false;
       }},
      {"answers others",
       [](int peer, const Bytes& call) {
         Words words{kOtherXid, REPLY, MSG_ACCEPTED, AUTH_SYS, 400};
         words.resize(5 + 100 + 2);
         return !send_all(peer, reply(record(words), call));
       }},
  };
  for (const auto& [name, serve] : servers) {
    SCOPED_TRACE(name);
    const Listener server([&serve = serve](int peer) {
      const Bytes call = await_call(peer);
      while (!serve(peer, call)) {
      }
    });
    const auto client = agent_client(connected_socket(), 300ms);
    const auto used = mallinfo2().uordblks;
    const auto start = Clock::now();
    EXPECT_EQ(agent_null(*client, {}), nullptr);
    EXPECT_GE(Clock::now() - start, 290ms);
    EXPECT_EQ(agent_null(*client, {}), nullptr) << "the connection is gone for good";
    EXPECT_LT(Clock::now() - start, 3s);
    EXPECT_LT(mallinfo2().uordblks, used + 100'000);
  }
}

// A request that is far beyond what the sockets hold, to a peer that never reads, or late, and
// then does not answer: sending and waiting share the time.
TEST(RpcClient, BoundsCallsToAPeerThatDoesNotRead) {
  const WireRoutine encode_64_mib = [](XDR* stream, void*) -> bool_t {
    const Bytes block(1 << 16);
    for (int i = 0; i < 1024; ++i) {
      if (!XDR_PUTBYTES(stream, reinterpret_cast<const char*>(block.data()), 1 << 16)) return FALSE;
    }
    return TRUE;
  };
  for (const bool reads : {false, true}) {
    SCOPED_TRACE(reads);
    const Listener server([reads](int peer) {
      hung_up(peer, reads ? 700 : 1200);
      Bytes block(1 << 20);
      while (reads && recv(peer, block.data(), block.size(), 0) > 0) {
      }
    });
    const auto client = agent_client(connected_socket(), 1s);
    NullReply reply;
    const auto start = Clock::now();
    EXPECT_FALSE(client->call(0, encode_64_mib, nullptr, wire_routine<NullReply>, &reply));
    EXPECT_GE(Clock::now() - start, 990ms);
    EXPECT_LT(Clock::now() - start, 1650ms);
    EXPECT_EQ(agent_null(*client, {}), nullptr);
  }
}

// The time counts for each call by itself, and a signal costs none.
TEST(RpcClient, LeavesOtherCallsAlone) {
  const Listener server([](int peer) {
    for (Bytes call; !(call = await_call(peer)).empty();) {
      std::this_thread::sleep_for(200ms);
      send_all(peer, reply(kSeven, call));
    }
  });
  struct sigaction ignore {};
  ignore.sa_handler = [](int) {};
  sigaction(SIGALRM, &ignore, nullptr);
  const itimerval often{{0, 20'000}, {0, 20'000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto client = agent_client(connected_socket(), 600ms);
  for (int i = 0; i < 4; ++i) EXPECT_NE(agent_null(*client, {}), nullptr) << i;
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
}

}  // namespace
}  // namespace tally
