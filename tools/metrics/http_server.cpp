#include "metrics/http_server.h"

#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "metrics/http_request.h"

namespace tally {
namespace {

// A server that is asked by more at a time is asked by somebody who should not.
constexpr std::size_t kMostConnections = 32;

// How long a client may take to send its request, and to take its answer.
constexpr std::int64_t kRequestTime = 5000;
constexpr std::int64_t kAnswerTime = 30000;

// What a client still sends when it has its answer is read for so long: a connection that is closed
// over unread octets is reset, and the answer is lost with it.
constexpr std::int64_t kLingerTime = 1000;

constexpr std::int64_t kPageLife = 1000;

constexpr char kText[] = "text/plain; charset=utf-8";

std::int64_t now() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

// Connection is a client: it sends a request until `answer` is there, and takes that then.
struct HttpServer::Connection {
  UniqueFd fd;
  std::int64_t deadline;
  std::string request;
  std::string answer;
  std::shared_ptr<const std::string> body;  // goes behind the answer
  std::size_t sent = 0;
  bool answered = false;  // all is sent; what comes is read and dropped
  bool over = false;

  void reply(std::string text) {
    answer = std::move(text);
    request.clear();
    deadline = now() + kAnswerTime;
  }
};

HttpServer::HttpServer() = default;
HttpServer::~HttpServer() = default;

std::string HttpServer::listen(const std::string& where) {
  const std::size_t colon = where.rfind(':');
  std::string host = colon == std::string::npos ? "127.0.0.1" : where.substr(0, colon);
  const std::string port = colon == std::string::npos ? where : where.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* found = nullptr;
  if (host.empty() || port.empty() ||
      getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    return fmt::format("'{}' is no address to listen at; write PORT, ADDR:PORT or [ADDR6]:PORT",
                       where);
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  socket_.reset(socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket_ || setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(socket_.get(), list->ai_addr, list->ai_addrlen) != 0 ||
      ::listen(socket_.get(), SOMAXCONN) != 0) {
    return fmt::format("cannot listen at {}: {}; choose a free port of this machine", where,
                       std::strerror(errno));
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  char name[NI_MAXHOST];
  char service[NI_MAXSERV];
  auto* address = reinterpret_cast<sockaddr*>(&bound);
  if (getsockname(socket_.get(), address, &length) != 0 ||
      getnameinfo(address, length, name, sizeof name, service, sizeof service,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "cannot tell where it listens";
  }
  address_ = list->ai_family == AF_INET6 ? fmt::format("http://[{}]:{}", name, service)
                                         : fmt::format("http://{}:{}", name, service);
  return {};
}

void HttpServer::accept_all() {
  while (connections_.size() < kMostConnections) {
    UniqueFd fd(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) return;
    auto connection = std::make_unique<Connection>();
    connection->fd = std::move(fd);
    connection->deadline = now() + kRequestTime;
    connections_.push_back(std::move(connection));
  }
}

void HttpServer::receive(Connection& connection, const std::function<std::string()>& page) {
  char bytes[4096];
  const ssize_t got = recv(connection.fd.get(), bytes, sizeof bytes, 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got <= 0) connection.over = true;
  if (got <= 0 || connection.answered) return;
  connection.request.append(bytes, static_cast<std::size_t>(got));
  const HttpRequest request = parse_request(connection.request);
  const bool head = request.method == "HEAD";
  switch (request.state) {
    case RequestState::incomplete:
      return;
    case RequestState::malformed:
      return connection.reply(http_response(400, kText, "this is no HTTP request\n"));
    case RequestState::too_long:
      return connection.reply(http_response(431, kText, "the request is too long\n"));
    case RequestState::complete:
      break;
  }
  if (request.method != "GET" && !head) {
    return connection.reply(http_response(405, kText, "only GET and HEAD are answered\n"));
  }
  if (request.path == "/") {
    return connection.reply(http_response(200, kText, "tallyctl: metrics are at /metrics\n", head));
  }
  if (request.path != "/metrics") {
    return connection.reply(http_response(404, kText, "metrics are at /metrics\n", head));
  }
  if (!page_ || now() - page_made_ > kPageLife) {
    page_ = std::make_shared<const std::string>(page());
    page_made_ = now();
  }
  connection.reply(http_response(200, "text/plain; version=0.0.4; charset=utf-8", *page_, true));
  if (!head) connection.body = page_;
}

void HttpServer::send_more(Connection& connection) {
  for (;;) {
    const bool in_answer = connection.sent < connection.answer.size();
    const std::size_t body_at = in_answer ? 0 : connection.sent - connection.answer.size();
    const std::string& part = in_answer || !connection.body ? connection.answer : *connection.body;
    const std::size_t at = in_answer ? connection.sent : body_at;
    if (!in_answer && (!connection.body || at >= part.size())) {
      (void)shutdown(connection.fd.get(), SHUT_WR);
      connection.answered = true;
      connection.deadline = now() + kLingerTime;
      return;
    }
    const ssize_t sent =
        send(connection.fd.get(), part.data() + at, part.size() - at, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno == EAGAIN) return;
    if (sent < 0) {
      connection.over = true;
      return;
    }
    connection.sent += static_cast<std::size_t>(sent);
  }
}

void HttpServer::serve_once(int also, const std::function<std::string()>& page) {
  const bool room = connections_.size() < kMostConnections;
  std::vector<pollfd> polled{{also, POLLIN, 0}, {room ? socket_.get() : -1, POLLIN, 0}};
  std::int64_t until = -1;
  for (const auto& each : connections_) {
    const bool sending = !each->answer.empty() && !each->answered;
    polled.push_back({each->fd.get(), static_cast<short>(sending ? POLLOUT : POLLIN), 0});
    until = until < 0 ? each->deadline : std::min(until, each->deadline);
  }
  const int wait = until < 0 ? -1 : static_cast<int>(std::max<std::int64_t>(until - now(), 0));
  if (poll(polled.data(), polled.size(), wait) < 0) return;
  for (std::size_t i = 0; i < connections_.size(); ++i) {
    Connection& connection = *connections_[i];
    const bool listening = connection.answer.empty() || connection.answered;
    if (polled[i + 2].revents != 0 && listening) receive(connection, page);
    if (!connection.answer.empty() && !connection.answered && !connection.over) {
      send_more(connection);
    }
    if (connection.over || now() < connection.deadline) continue;
    if (connection.answer.empty()) {
      // Said to a client that may still listen; not waited for.
      connection.reply(http_response(408, kText, "the request took too long\n"));
      send_more(connection);
    }
    connection.over = true;
  }
  std::erase_if(connections_, [](const auto& each) { return each->over; });
  if (polled[1].revents != 0) accept_all();
}

}  // namespace tally
