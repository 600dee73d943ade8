#include "bench/canned_agent.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "bench/wire_bytes.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kProgram = 99999;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kBatch = 100;
constexpr std::uint32_t kLastFragment = 0x8000'0000;

enum Procedure : std::uint32_t { kNull = 0, kSystemInfo = 1 };

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
  const auto length = static_cast<std::uint32_t>(own - 4 + reply.rows.size());
  // A reply (1) that is accepted (0), without a verifier (0, 0).
  put_words(reply.bytes.data(), {kLastFragment | length, xid, 1, 0, 0, 0, status});
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
    constexpr std::size_t kCall = 24;  // xid, CALL, RPC version, program, version, procedure
    constexpr std::size_t kArgument = kCall + 16;  // behind two empty authenticators
    if (request.size() < kArgument) return false;
    const auto word = [&request](std::size_t index) { return load_u32(&request[4 * index]); };
    if (word(1) != 0 || word(2) != 2 || word(3) != kProgram || word(4) != kVersion ||
        word(7) != 0 || word(9) != 0) {
      return false;
    }
    // Held while the rows are sent, so that none is sent half advanced.
    const std::lock_guard lock(mutex_);
    Reply reply;
    const auto status = fill(reply, word(5), request.subspan(kArgument));
    return status && send_reply(connection, reply, word(0), *status);
  }

 private:
  std::optional<AcceptStatus> fill(Reply& reply, std::uint32_t procedure,
                                   std::span<const std::uint8_t> argument) {
    if (procedure == kNull) {
      table_.advance();
      reply.end = put_u32(reply.end, 0);
      return kSuccess;
    }
    if (procedure == kSystemInfo) {
      // An empty description, the up-time (a hundred to an epoch), four empty texts, services.
      reply.end = put_words(reply.end, {0, table_.epoch() * 100, 0, 0, 0, 0, 0});
      return kSuccess;
    }
    const TableShape& shape = table_.shape();
    if (procedure != shape.procedure) return kProcedureUnavailable;
    const auto first = table_.first_after(argument);
    if (!first) return std::nullopt;
    reply.rows = table_.wire(*first, shape.batched ? kBatch : 1);
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

  std::mutex mutex_;
  SampleTable& table_;
};

// Serves one connection until the client closes it: a blocking read and a send for each call.
void serve(Agent& agent, int connection) {
  std::array<std::uint8_t, 1024> buffer;
  std::size_t have = 0;
  for (;;) {
    const std::uint32_t mark = have < 4 ? kLastFragment : load_u32(buffer.data());
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

}  // namespace

void serve_table(int listener, SampleTable& table) {
  Agent agent(table);
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) break;
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::thread(serve, std::ref(agent), connection).detach();
  }
  throw std::system_error(errno, std::generic_category(), "the canned agent cannot accept");
}

}  // namespace tally::bench
