#include "metrics/http_server.h"

#include <fmt/format.h>
#include <microhttpd.h>
#include <netdb.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "records/collection_name.h"

namespace tally {
namespace {

using namespace std::chrono_literals;

// More clients at a time than this are nobody's scrapers. The newest is served all the same: the
// one that has been there longest is hung up on.
constexpr std::size_t kMostClients = 512;

// Descriptors that are kept for making the page, and for everything else that is open.
constexpr std::size_t kOwnDescriptors = 32;

// How long a client may take to send its request, and to take its answer.
constexpr auto kRequestTime = 5s;
constexpr auto kAnswerTime = 30s;

// After this the listening socket is looked at again when a client could not be accepted.
constexpr auto kPause = 100ms;

constexpr auto kPageLife = 1s;

// Bytes of a request's header and of its answer's.
constexpr std::size_t kConnectionMemory = 8192;

constexpr char kText[] = "text/plain; charset=utf-8";
constexpr char kPage[] = "text/plain; version=0.0.4; charset=utf-8";

// response_of makes a response that is freed with its last user; null without memory.
std::shared_ptr<MHD_Response> response_of(std::string text, const char* type) {
  auto* body = new std::string(std::move(text));
  MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
      body->size(), body->data(), [](void* held) { delete static_cast<std::string*>(held); }, body);
  if (response == nullptr) {
    delete body;
    return nullptr;
  }
  std::shared_ptr<MHD_Response> owner(response, MHD_destroy_response);
  for (const auto& [name, value] : {std::pair{"Content-Type", type},
                                    {"Connection", "close"},
                                    {"X-Content-Type-Options", "nosniff"}}) {
    if (MHD_add_response_header(response, name, value) != MHD_YES) return nullptr;
  }
  return owner;
}

std::size_t most_clients() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  const std::size_t room = std::max<rlim_t>(limit.rlim_cur, kOwnDescriptors + 1) - kOwnDescriptors;
  return std::min(room, kMostClients);
}

}  // namespace

struct HttpServer::Library {
  // A connection begins or ends; the client is its socket's context meanwhile.
  static void notify(void* server, MHD_Connection* connection, void** context,
                     MHD_ConnectionNotificationCode what) {
    auto& clients = static_cast<HttpServer*>(server)->clients_;
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
      const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
      *context = &clients.emplace_back(Client{info->connect_fd, Clock::now() + kRequestTime});
    } else {
      clients.remove_if([&](const Client& client) { return &client == *context; });
    }
  }

  // A request is there: called for its header, for each part of its body, and for its end, which is
  // answered.
  static MHD_Result answer(void* server, MHD_Connection* connection, const char* url,
                           const char* method, const char* /*version*/, const char* /*body*/,
                           std::size_t* length, void** begun) {
    if (*begun == nullptr || *length != 0) {
      *begun = server;
      *length = 0;
      return MHD_YES;
    }
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    static_cast<Client*>(info->socket_context)->deadline = Clock::now() + kAnswerTime;
    const auto reply = [&](unsigned status, const std::shared_ptr<MHD_Response>& response) {
      return response ? MHD_queue_response(connection, status, response.get()) : MHD_NO;
    };
    const std::string_view path = url;
    if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0) {
      const auto refusal = response_of("only GET and HEAD are answered\n", kText);
      if (refusal) (void)MHD_add_response_header(refusal.get(), "Allow", "GET, HEAD");
      return reply(MHD_HTTP_METHOD_NOT_ALLOWED, refusal);
    }
    if (path == "/") {
      return reply(MHD_HTTP_OK, response_of("tallyctl: metrics are at /metrics\n", kText));
    }
    if (path != "/metrics") {
      return reply(MHD_HTTP_NOT_FOUND, response_of("metrics are at /metrics\n", kText));
    }
    return reply(MHD_HTTP_OK, static_cast<HttpServer*>(server)->page());
  }
};

HttpServer::HttpServer(std::function<std::string()> make_page)
    : make_page_(std::move(make_page)), daemon_(nullptr, MHD_stop_daemon) {}

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
  // The resolver would take the lowest 16 bits of any number.
  if (host.empty() || parse_number(port).value_or(UINT32_MAX) > UINT16_MAX ||
      getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    throw UsageError("cannot listen at '{}'; write PORT, ADDR:PORT or [ADDR6]:PORT", where);
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
  most_clients_ = most_clients();
  // The library would try again at once when no descriptor is left, so clients are accepted here.
  daemon_.reset(MHD_start_daemon(
      MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET, 0, nullptr, nullptr, Library::answer, this,
      MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(most_clients_),
      MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_NOTIFY_CONNECTION,
      Library::notify, this, MHD_OPTION_END));
  return daemon_ ? "" : "cannot serve: no memory or no descriptors";
}

const std::shared_ptr<MHD_Response>& HttpServer::page() {
  if (!page_ || Clock::now() - page_made_ > kPageLife) {
    page_ = response_of(make_page_(), kPage);
    page_made_ = Clock::now();
  }
  return page_;
}

// The library sees the end of the connection, and closes it.
void HttpServer::hang_up(Client& client) {
  (void)shutdown(client.fd, SHUT_RDWR);  // fails when the client was faster
  client.deadline = Clock::time_point::max();
}

void HttpServer::accept_all() {
  for (std::size_t i = 0; i < most_clients_; ++i) {
    if (clients_.size() >= most_clients_) {
      hang_up(clients_.front());
      (void)MHD_run(daemon_.get());
      if (clients_.size() >= most_clients_) return;
    }
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    auto* address = reinterpret_cast<sockaddr*>(&peer);
    const int fd = accept4(socket_.get(), address, &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      if (errno != EAGAIN) accept_again_ = Clock::now() + kPause;
      return;
    }
    (void)MHD_add_connection(daemon_.get(), fd, address, length);  // closes it when that fails
    (void)MHD_run(daemon_.get());
  }
}

void HttpServer::serve_once(int also) {
  const auto now = Clock::now();
  auto until = Clock::time_point::max();
  for (const Client& client : clients_) until = std::min(until, client.deadline);
  const bool paused = now < accept_again_;
  if (paused) until = std::min(until, accept_again_);
  MHD_UNSIGNED_LONG_LONG library_wait = 0;
  if (MHD_get_timeout(daemon_.get(), &library_wait) == MHD_YES) {
    until = std::min(until, now + std::chrono::milliseconds(library_wait));
  }
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
  const int epoll = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
  pollfd polled[] = {
      {also, POLLIN, 0}, {epoll, POLLIN, 0}, {paused ? -1 : socket_.get(), POLLIN, 0}};
  const bool forever = until == Clock::time_point::max();
  if (poll(polled, std::size(polled), forever ? -1 : static_cast<int>(std::max(wait, 0L))) < 0) {
    return;
  }
  (void)MHD_run(daemon_.get());
  for (Client& client : clients_) {
    if (client.deadline <= Clock::now()) hang_up(client);
  }
  if (polled[2].revents != 0) accept_all();
}

}  // namespace tally
