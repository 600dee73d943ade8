// The calls to the agent, against servers of the test's own and beside libtirpc's client. A reply
// that is cut short and a connection that the agent closes are seen end to end.
#include "agent/rpc_client.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "agent/procedures.h"
#include "files/unique_fd.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Listener serves one connection after the other, on a port of its own: each is handed to the
// function and then closed. Meanwhile one more is queued, and no other.
class Listener {
 public:
  explicit Listener(std::function<void(int)> serve)
      : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), serve_(std::move(serve)) {
    ifreq loopback{{{"lo"}}, {}};
    if (ioctl(socket_.get(), SIOCGIFFLAGS, &loopback) != 0 || (loopback.ifr_flags & IFF_UP) == 0) {
      throw std::runtime_error("these tests need a loopback interface that is up");
    }
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address_), size), 0);
    EXPECT_EQ(listen(socket_.get(), 0), 0);
    getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address_), &size);
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

  sockaddr_in address() const { return address_; }

 private:
  UniqueFd socket_;
  sockaddr_in address_{};
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

bool hung_up(int peer, int milliseconds) {
  pollfd ready{peer, POLLRDHUP, 0};
  return poll(&ready, 1, milliseconds) > 0;
}

// From which port a client came, and what two calls over one connection sent and brought.
struct Exchange {
  bool reserved_port = false;
  Bytes calls;
  std::optional<std::int32_t> results[2];

  friend bool operator==(const Exchange&, const Exchange&) = default;
};

// Answers two calls with these words and a good reply after them.
void two_calls(const Words& answer, bool through_library, Exchange& seen) {
  const Listener server([&](int peer) {
    sockaddr_in client{};
    socklen_t size = sizeof client;
    getpeername(peer, reinterpret_cast<sockaddr*>(&client), &size);
    seen.reserved_port = ntohs(client.sin_port) < IPPORT_RESERVED;
    for (Bytes call; !(call = await_call(peer)).empty();) {
      Words words = answer;
      words.insert(words.end(), kSeven.begin(), kSeven.end());
      send_all(peer, reply(words, call));
      std::fill_n(call.begin() + 4, 4, std::uint8_t{0});  // each client numbers as it likes
      seen.calls.insert(seen.calls.end(), call.begin(), call.end());
    }
  });
  sockaddr_in address = server.address();
  int descriptor = -1;
  CLIENT* library = through_library
                        ? clnttcp_create(&address, AGENT_PROGRAM, AGENT_VERSION, &descriptor, 0, 0)
                        : nullptr;
  const auto ours = through_library ? nullptr : agent_connect(address, 5s);
  ControlKey key{5, 2};
  for (auto& result : seen.results) {
    Number reply{-1};  // stays when the library reports success without a result
    const bool good =
        through_library
            ? clnt_call(library, 9, reinterpret_cast<xdrproc_t>(wire_routine<ControlKey>), &key,
                        reinterpret_cast<xdrproc_t>(wire_routine<Number>), &reply,
                        (timeval{5, 0})) == RPC_SUCCESS
            : ours->call(9, wire_routine<ControlKey>, &key, wire_routine<Number>, &reply);
    if (good && reply.value != -1) result = reply.value;
  }
  if (!library) return;
  auth_destroy(library->cl_auth);
  clnt_destroy(library);
}

// The same bytes go out from a port of the same kind, and every answer means the same as it does to
// libtirpc.
TEST(RpcClient, AgreesWithTheLibrary) {
  std::vector<Words> answers = {
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
      {0, 0},  // fragments without content
      {8, kXid, REPLY, 4, MSG_ACCEPTED, 8, 0, 0, 4, SUCCESS, kLastFragment | 4, 9},
  };
  for (std::ptrdiff_t words = 0; words < 7; ++words) {  // cut short
    answers.push_back(record({kSeven.begin() + 1, kSeven.begin() + 1 + words}));
  }
  for (const Words& answer : answers) {
    SCOPED_TRACE(testing::PrintToString(answer));
    Exchange ours, library;
    two_calls(answer, false, ours);
    two_calls(answer, true, library);
    EXPECT_EQ(ours, library);
    EXPECT_EQ(ours.calls.size(), 2U * (4 + 40 + 8));
    EXPECT_TRUE(&answer != answers.data() || ours.results[1] == 9);
  }
}

// A request that is far beyond what the sockets hold.
bool_t encode_64_mib(XDR* stream, void* /*value*/) {
  const Bytes block(1 << 16);
  for (int i = 0; i < 1024; ++i) {
    if (!XDR_PUTBYTES(stream, reinterpret_cast<const char*>(block.data()), 1 << 16)) return FALSE;
  }
  return TRUE;
}

// Each would last for ever, and the flood would fill the memory. The next call is answered over a
// new connection.
TEST(RpcClient, BoundsCalls) {
  const WireRoutine nothing = [](XDR*, void*) -> bool_t { return TRUE; };
  constexpr auto kMost = 1s;  // the second call must be answered in it on a busy machine, too
  const struct {
    const char* name;
    WireRoutine request;
    std::function<bool(int, const Bytes&)> serve;  // again and again, until it returns true
  } servers[] = {
      {"silent", nothing, [](int peer, const Bytes&) { return hung_up(peer, 40); }},
      {"drips", nothing,
       [](int peer, const Bytes& call) {
         for (const std::uint8_t byte : reply(kSeven, call)) {
           if (!send_all(peer, {byte}) || hung_up(peer, 40)) return true;
         }
         return false;
       }},
      {"answers others", nothing,
       [](int peer, const Bytes& call) {
         Words words{kOtherXid, REPLY, MSG_ACCEPTED, AUTH_SYS, 400};
         words.resize(5 + 100 + 2);
         return !send_all(peer, reply(record(words), call));
       }},
      {"never reads", encode_64_mib,
       [](int peer, const Bytes&) { return hung_up(peer, 1200) || true; }},
  };
  for (const auto& [name, request, serve] : servers) {
    SCOPED_TRACE(name);
    int connections = 0;
    const Listener server([&, &serve = serve](int peer) {
      const Bytes call = await_call(peer);
      if (++connections > 1) send_all(peer, reply(kSeven, call));
      while (connections == 1 && !serve(peer, call)) {
      }
    });
    const auto client = agent_connect(server.address(), kMost);
    Number result;
    const auto used = mallinfo2().uordblks;
    const auto start = Clock::now();
    EXPECT_FALSE(client->call(0, request, nullptr, wire_routine<Number>, &result));
    EXPECT_GE(Clock::now() - start, kMost - 10ms);
    EXPECT_NE(agent_null(*client, {}), nullptr);
    EXPECT_LT(mallinfo2().uordblks, used + 100'000);
  }
}

// The time counts for each call by itself, and a signal costs none.
TEST(RpcClient, LeavesOtherCallsAlone) {
  const Listener server([](int peer) {
    for (Bytes call; !(call = await_call(peer)).empty();) {
      std::this_thread::sleep_for(900ms);
      send_all(peer, reply(kSeven, call));
    }
  });
  struct sigaction ignore {};
  ignore.sa_handler = [](int) {};
  sigaction(SIGALRM, &ignore, nullptr);
  const itimerval often{{0, 20'000}, {0, 20'000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto client = agent_connect(server.address(), 2500ms);
  for (int i = 0; i < 4; ++i) EXPECT_NE(agent_null(*client, {}), nullptr) << i;
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
}

// A connect that a full queue leaves hanging takes its time.
TEST(RpcClient, BoundsConnects) {
  const Listener server([](int peer) { hung_up(peer, -1); });
  const auto accepted = agent_connect(server.address(), 1h);
  const auto queued = agent_connect(server.address(), 1h);
  ASSERT_TRUE(accepted && queued);
  const auto start = Clock::now();
  EXPECT_EQ(agent_connect(server.address(), 300ms), nullptr);
  EXPECT_GE(Clock::now() - start, 300ms);
}

}  // namespace
}  // namespace tally
