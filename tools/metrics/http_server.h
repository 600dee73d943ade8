// Serves one page to scrapers: libmicrohttpd in the caller's thread and loop.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "files/unique_fd.h"

struct MHD_Connection;
struct MHD_Daemon;
struct MHD_Response;

namespace tally {

class HttpServer {
 public:
  // `make_page` makes what /metrics answers. A page is used again until it is a second old.
  explicit HttpServer(std::function<std::string()> make_page);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // listen opens ADDR:PORT, [ADDR6]:PORT or PORT (on 127.0.0.1; 0: any that is free). Returns an
  // empty text, or why not.
  std::string listen(const std::string& where);

  // address returns where it listens, as a URL has it.
  const std::string& address() const { return address_; }

  // serve_once waits until something happens at the server or at `also` (a descriptor), or a client
  // has been too slow, and does what can be done without waiting.
  void serve_once(int also);

 private:
  using Clock = std::chrono::steady_clock;
  struct Client {
    int fd;  // the library's
    Clock::time_point deadline;
  };
  struct Library;  // what libmicrohttpd calls

  void accept_all();
  static void hang_up(Client& client);
  const std::shared_ptr<MHD_Response>& page();

  std::function<std::string()> make_page_;
  UniqueFd socket_;
  std::string address_;
  std::size_t most_clients_ = 1;
  std::list<Client> clients_;         // in the order in which they came
  Clock::time_point accept_again_{};  // descriptors had run out
  std::shared_ptr<MHD_Response> page_;
  Clock::time_point page_made_{};
  std::unique_ptr<MHD_Daemon, void (*)(MHD_Daemon*)> daemon_;
};

}  // namespace tally
