// canned_agent: an RMON agent that costs next to nothing, for measuring its clients.
//
// It serves one table whose rows lie ready in wire form; a reply is a 32-byte head and a piece of
// that table, sent in one call. It speaks just enough ONC RPC over TCP (RFC 5531): one fragment a
// record, no authentication, program 99999 version 1.
//
//   0    null; also moves every counter to its next epoch. The daemon makes this call before each
//        pass, so counters advance from poll to poll, and outside of what a benchmark times.
//   1    system information            9, 16, 24   control tables, all empty
//   11, 18, 26   host, matrix and protocol distribution rows         184   the totals of the last
//   34, 37       network hosts and conversations                     138   DSMON hosts, one a call
//
// All other procedures are refused as unavailable, what is malformed ends its connection.
// Prints "listening on PORT" when it is ready and runs until it is killed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "bench/sample_table.h"
#include "bench/wire_bytes.h"

namespace {

using tally::bench::put_u32;
using tally::bench::put_u64;
using tally::bench::SampleTable;
using tally::bench::table_shape;
using tally::bench::TableKind;
using tally::bench::WireCursor;

constexpr std::uint32_t kProgram = 99999;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kBatch = 100;
constexpr std::uint32_t kLastFragment = 0x8000'0000;

enum Procedure : std::uint32_t {
  kNull = 0,
  kSystemInfo = 1,
  kHostControl = 9,
  kMatrixControl = 16,
  kPdistControl = 24,
  kPdistTotals = 184,
};

// accept_stat of RFC 5531
enum AcceptStatus : std::uint32_t { kSuccess = 0, kProcedureUnavailable = 3 };

struct Reply {
  static constexpr std::size_t kHead = 28;  // record mark and accepted-reply header

  std::array<std::uint8_t, 192> bytes;
  std::uint8_t* end = bytes.data() + kHead;
  std::span<const std::uint8_t> rows;
};

// Writes what is known last (the record mark) and first (xid, status), and sends all in one call.
bool send_reply(int connection, Reply& reply, std::uint32_t xid, AcceptStatus status) {
  const auto own = static_cast<std::size_t>(reply.end - reply.bytes.data());
  std::uint8_t* to = reply.bytes.data();
  to = put_u32(to, kLastFragment | static_cast<std::uint32_t>(own - 4 + reply.rows.size()));
  to = put_u32(to, xid);
  for (const std::uint32_t word : {1U /* reply */, 0U /* accepted */, 0U, 0U /* no verifier */}) {
    to = put_u32(to, word);
  }
  put_u32(to, status);
  // Linux keeps its hands off the bytes of an iovec that is sent.
  iovec parts[] = {{reply.bytes.data(), own},
                   {const_cast<std::uint8_t*>(reply.rows.data()), reply.rows.size()}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  const ssize_t sent = sendmsg(connection, &message, MSG_NOSIGNAL);
  return sent == static_cast<ssize_t>(own + reply.rows.size());
}

class Agent {
 public:
  explicit Agent(SampleTable& table) : table_(table) {}

  // answer serves one request, the bytes behind its record mark. False ends the connection.
  bool answer(int connection, std::span<const std::uint8_t> request) {
    WireCursor cursor(request);
    const std::uint32_t xid = cursor.u32();
    const std::uint32_t kind = cursor.u32();
    const std::uint32_t rpc_version = cursor.u32();
    const std::uint32_t program = cursor.u32();
    const std::uint32_t version = cursor.u32();
    const std::uint32_t procedure = cursor.u32();
    for (int i = 0; i < 2; ++i) {  // credential and verifier: flavour and opaque body
      cursor.u32();
      cursor.skip((cursor.u32() + 3) / 4 * 4);
    }
    if (!cursor.ok() || kind != 0 || rpc_version != 2 || program != kProgram ||
        version != kVersion) {
      return false;
    }
    // Held while the rows are sent, so that none is sent half advanced.
    const std::lock_guard lock(mutex_);
    Reply reply;
    const auto status = fill(reply, procedure, cursor.rest());
    return status && send_reply(connection, reply, xid, *status);
  }

 private:
  std::optional<AcceptStatus> fill(Reply& reply, std::uint32_t procedure,
                                   std::span<const std::uint8_t> argument) {
    switch (procedure) {
      case kNull:
        table_.advance();
        reply.end = put_u32(reply.end, 0);
        return kSuccess;
      case kSystemInfo:
        // An empty description, the up-time (a hundred to an epoch), four empty texts, services.
        for (const std::uint32_t word : {0U, table_.epoch() * 100, 0U, 0U, 0U, 0U, 0U}) {
          reply.end = put_u32(reply.end, word);
        }
        return kSuccess;
      case kHostControl:
      case kMatrixControl:
      case kPdistControl:
        // No such entry: a status that is not 0, and an entry of zeros with an empty owner.
        for (const std::uint32_t word : {1U, 0U, 0U, 0U, 0U, 0U, 0U}) {
          reply.end = put_u32(reply.end, word);
        }
        return kSuccess;
      case kPdistTotals:
        reply.end = put_u32(reply.end, 0);
        reply.end = put_u64(reply.end, table_.epoch() * std::uint64_t{1000});
        reply.end = put_u64(reply.end, table_.epoch() * std::uint64_t{64000});
        return kSuccess;
      default:
        break;
    }
    for (const TableKind kind : tally::bench::kTableKinds) {
      const auto& shape = table_shape(kind);
      if (procedure != shape.procedure) continue;
      if (procedure == table_.shape().procedure) {
        const auto first = table_.first_after(argument);
        if (!first) return std::nullopt;
        reply.rows = table_.wire(*first, shape.batched ? kBatch : 1);
      }
      if (shape.batched) {
        const auto count = reply.rows.size() / shape.row_size;
        reply.end = put_u32(reply.end, static_cast<std::uint32_t>(count));
      } else if (reply.rows.empty()) {
        // No such row: a status that is not 0, and a row of zeros.
        std::uint8_t* const begin = reply.end;
        reply.end = begin + shape.row_size;
        std::fill(put_u32(begin, 1), reply.end, std::uint8_t{0});
      }
      return kSuccess;
    }
    return kProcedureUnavailable;
  }

  std::mutex mutex_;
  SampleTable& table_;
};

// Serves one connection until the client closes it: a blocking read and a send for each call.
void serve(Agent& agent, int connection) {
  std::array<std::uint8_t, 1024> buffer;
  std::size_t have = 0;
  for (;;) {
    const std::uint32_t mark = have < 4 ? kLastFragment : tally::bench::load_u32(buffer.data());
    const std::size_t need = 4 + std::size_t{mark & ~kLastFragment};
    if ((mark & kLastFragment) == 0 || need > buffer.size()) break;
    if (have > 4 && have >= need) {
      if (!agent.answer(connection, std::span(buffer).subspan(4, need - 4))) break;
      std::memmove(buffer.data(), buffer.data() + need, have - need);
      have -= need;
      continue;
    }
    const ssize_t got = recv(connection, buffer.data() + have, buffer.size() - have, 0);
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  close(connection);
}

// Returns a listening socket on the loopback address, or -1.
int listen_on(std::uint16_t port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener < 0 || setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 16) != 0) {
    return -1;
  }
  return listener;
}

int run(std::uint16_t port, SampleTable& table) {
  const int listener = listen_on(port);
  if (listener < 0) {
    std::perror("canned_agent: cannot listen");
    return 1;
  }
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &length);
  std::printf("listening on %u\n", ntohs(bound.sin_port));
  std::fflush(stdout);

  Agent agent(table);
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      std::perror("canned_agent: accept");
      return 1;
    }
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::thread(serve, std::ref(agent), connection).detach();
  }
}

}  // namespace

int main(int argc, char** argv) try {
  std::uint16_t port = 9911;
  std::uint32_t rows = 100'000;
  std::uint32_t index = 1;
  bool with_parent = false;
  TableKind kind = TableKind::host;
  std::map<std::string, TableKind> kinds;
  for (const TableKind each : tally::bench::kTableKinds) kinds[table_shape(each).name] = each;

  CLI::App app("Serves one canned RMON table over ONC RPC on 127.0.0.1.");
  app.add_option("--port", port, "TCP port, 0 for any free one")->capture_default_str();
  app.add_option("--table", kind, "Which table has rows; the others are empty")
      ->transform(CLI::CheckedTransformer(kinds));
  app.add_option("--rows", rows, "Rows of the table")
      ->check(CLI::Range(0U, tally::bench::kMostRows))
      ->capture_default_str();
  app.add_option("--index", index, "Control index of the rows")->capture_default_str();
  app.add_flag("--with-parent", with_parent, "End when the parent process ends");
  CLI11_PARSE(app, argc, argv);

  if (with_parent) prctl(PR_SET_PDEATHSIG, SIGTERM);
  SampleTable table(kind, index, rows);
  return run(port, table);
} catch (const std::exception& error) {
  std::fprintf(stderr, "canned_agent: %s\n", error.what());
  return 1;
}
