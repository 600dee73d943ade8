// canned_supervisor: a switch's supervisor that costs next to nothing, for measuring its clients.
//
// It speaks just enough SNMPv2c (RFC 3416) over UDP. Both the requests that it knows and their
// answers lie ready as bytes; an answer costs one comparison, one head and one system call. What is
// not byte for byte a request of a poll gets genErr and is counted apart. Orders: see kAdvance.
//
// Prints "listening on PORT" when it is ready and runs until it is killed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bench/supervisor/exchanges.h"
#include "bench/wire_bytes.h"
#include "snmp/values.h"

namespace {

using namespace tally::bench;
using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

constexpr std::size_t kHeadRoom = 320;  // for a community of up to 255 bytes

// Takes the head of an element off the front and returns its content; nothing when it is none.
std::optional<View> take_element(View& bytes, std::uint8_t tag) {
  if (bytes.size() < 2 || bytes[0] != tag) return std::nullopt;
  std::size_t length = bytes[1];
  std::size_t head = 2;
  if (length > 0x80) {
    head += length - 0x80;
    if (head > 4 || bytes.size() < head) return std::nullopt;
    length = 0;
    for (std::size_t i = 2; i < head; ++i) length = length << 8 | bytes[i];
  }
  if (bytes.size() < head + length) return std::nullopt;
  const View content = bytes.subspan(head, length);
  bytes = bytes.subspan(head + length);
  return content;
}

// The pieces of a request message.
struct Request {
  View opening;  // version and community, as they stand
  std::uint8_t type = 0;
  View id;    // the whole element
  View rest;  // what stands behind it
};

std::optional<Request> parse(View datagram) {
  const auto message = take_element(datagram, tally::SEQUENCE_TYPE);
  if (!message) return std::nullopt;
  View left = *message;
  const auto version = take_element(left, tally::INTEGER_TYPE);
  const auto community = take_element(left, tally::OCTET_STRING_TYPE);
  if (!version || !community || left.empty()) return std::nullopt;
  Request request;
  request.opening = message->first(message->size() - left.size());
  request.type = left[0];
  const auto pdu = take_element(left, request.type);
  if (!pdu || community->size() > 255) return std::nullopt;
  request.rest = *pdu;
  if (!take_element(request.rest, tally::INTEGER_TYPE)) return std::nullopt;
  request.id = pdu->first(pdu->size() - request.rest.size());
  return request.id.size() <= 6 ? std::optional(request) : std::nullopt;
}

// The last sub-identifier of the last name: its bytes stand before the NULL that ends the request.
std::uint32_t last_sub_id(View request) {
  std::uint32_t value = 0;
  std::size_t at = request.size() - 2;
  for (int shift = 0; shift < 32 && at > 1; shift += 7) {
    value |= (request[--at] & 0x7FU) << shift;
    if (request[at - 1] < 0x80) break;  // the end of the one before
  }
  return value;
}

// Puts an element's head with a length of two bytes in front of `to`.
std::uint8_t* put_head(std::uint8_t* to, std::uint8_t tag, std::size_t length) {
  const std::uint8_t head[] = {tag, 0x82, static_cast<std::uint8_t>(length >> 8),
                               static_cast<std::uint8_t>(length)};
  return static_cast<std::uint8_t*>(std::memcpy(to - sizeof head, head, sizeof head));
}

std::uint8_t* put_bytes(std::uint8_t* to, View bytes) {
  return std::copy_backward(bytes.begin(), bytes.end(), to);
}

class Supervisor {
 public:
  explicit Supervisor(const SupervisorState& state) : state_(state) {
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
      exchanges_[kind].resize(state.rows + 1);
      each_row(static_cast<RequestKind>(kind), [kind](Exchange& exchange, std::uint32_t row) {
        exchange.request = encoded_request(static_cast<RequestKind>(kind), row);
      });
    }
    make_answers();
  }

  // answer returns what to send back, empty for nothing. It stands until the next call.
  View answer(View datagram) {
    if (datagram.size() == 1) return obey(datagram[0]);
    const auto request = parse(datagram);
    if (!request || request->rest.size() < 4) return {};
    Bytes& answer = find(*request);
    std::uint8_t* const end = answer.data() + answer.size();
    std::uint8_t* to = put_bytes(answer.data() + kHeadRoom, request->id);
    to = put_head(to, tally::RESPONSE_PDU, static_cast<std::size_t>(end - to));
    to = put_bytes(to, request->opening);
    to = put_head(to, tally::SEQUENCE_TYPE, static_cast<std::size_t>(end - to));
    return {to, end};
  }

 private:
  struct Exchange {
    Bytes request;
    Bytes answer;  // with kHeadRoom in front
  };

  template <class Work>
  void each_row(RequestKind kind, Work work) {
    auto& exchanges = exchanges_[static_cast<std::size_t>(kind)];
    const std::uint32_t first = request_shape(kind).walks ? 0 : 1;
    for (std::uint32_t row = first; row <= state_.rows; ++row) work(exchanges[row], row);
  }

  void make_answers() {
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
      each_row(static_cast<RequestKind>(kind), [this, kind](Exchange& exchange, std::uint32_t row) {
        const Bytes bytes = encoded_answer(static_cast<RequestKind>(kind), row, state_);
        exchange.answer.assign(kHeadRoom, 0);
        exchange.answer.insert(exchange.answer.end(), bytes.begin(), bytes.end());
      });
    }
  }

  View obey(std::uint8_t order) {
    if (order == kAdvance) {
      ++state_.epoch;
      make_answers();
    }
    std::uint8_t* to = report_.data();
    for (const std::uint32_t count : counts_) to = put_u32(to, count);
    return report_;
  }

  Bytes& find(const Request& request) {
    const std::uint32_t row = last_sub_id(request.rest);
    for (std::size_t kind = 0; kind < kRequestKinds && row <= state_.rows; ++kind) {
      Exchange& exchange = exchanges_[kind][row];
      const bool walks = request_shape(static_cast<RequestKind>(kind)).walks;
      if (request.type == (walks ? tally::GET_NEXT_REQUEST_PDU : tally::GET_REQUEST_PDU) &&
          std::equal(exchange.request.begin(), exchange.request.end(), request.rest.begin(),
                     request.rest.end())) {
        ++counts_[kind];
        return exchange.answer;
      }
    }
    ++counts_[kRequestKinds];
    constexpr std::uint8_t kGenErr = 5;
    refusal_.assign(kHeadRoom, 0);
    refusal_.insert(refusal_.end(), request.rest.begin(), request.rest.end());
    refusal_[kHeadRoom + 2] = kGenErr;  // the error status, a number of one byte
    return refusal_;
  }

  SupervisorState state_;
  std::array<std::vector<Exchange>, kRequestKinds> exchanges_;
  std::array<std::uint32_t, kRequestKinds + 1> counts_{};
  std::array<std::uint8_t, 4 * (kRequestKinds + 1)> report_{};
  Bytes refusal_;
};

int run(const char* host, std::uint16_t port, const timespec& delay, Supervisor& supervisor) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(host);
  socklen_t length = sizeof address;
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    std::perror("canned_supervisor: cannot listen");
    return 1;
  }
  std::printf("listening on %u\n", ntohs(address.sin_port));
  std::fflush(stdout);

  std::array<std::uint8_t, 2048> buffer;
  for (;;) {
    sockaddr_in client{};
    length = sizeof client;
    const ssize_t got = recvfrom(fd, buffer.data(), buffer.size(), 0,
                                 reinterpret_cast<sockaddr*>(&client), &length);
    if (got < 0 && errno != EINTR && errno != ECONNREFUSED) {
      std::perror("canned_supervisor: receive");
      return 1;
    }
    if (got <= 0) continue;
    const View answer = supervisor.answer(View(buffer).first(static_cast<std::size_t>(got)));
    if (answer.empty()) continue;
    if (got > 1 && (delay.tv_sec != 0 || delay.tv_nsec != 0)) {
      clock_nanosleep(CLOCK_MONOTONIC, 0, &delay, nullptr);
    }
    // A client that is gone does not matter.
    (void)sendto(fd, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&client), length);
  }
}

}  // namespace

int main(int argc, char** argv) try {
  std::string host = "127.0.0.1";
  std::uint16_t port = 161;
  std::uint32_t delay = 0;
  bool with_parent = false;
  SupervisorState state{1000, 0, false};

  CLI::App app("Serves canned etherStats rows and interfaces over SNMPv2c.");
  app.add_option("--address", host, "IPv4 address to listen on")->capture_default_str();
  app.add_option("--port", port, "UDP port, 0 for any free one")->capture_default_str();
  app.add_option("--rows", state.rows, "Rows of each table")
      ->check(CLI::Range(0U, 10'000U))
      ->capture_default_str();
  app.add_option("--delay", delay, "Microseconds that an answer takes")
      ->check(CLI::Range(0U, 1'000'000U))
      ->capture_default_str();
  app.add_flag("--idle", state.idle, "All interfaces are down");
  app.add_flag("--with-parent", with_parent, "End when the parent process ends");
  CLI11_PARSE(app, argc, argv);

  if (with_parent) prctl(PR_SET_PDEATHSIG, SIGTERM);
  prctl(PR_SET_TIMERSLACK, 1UL);  // a delay is as long as it says
  Supervisor supervisor(state);
  return run(host.c_str(), port, {delay / 1'000'000, static_cast<long>(delay % 1'000'000) * 1000},
             supervisor);
} catch (const std::exception& error) {
  std::fprintf(stderr, "canned_supervisor: %s\n", error.what());
  return 1;
}
