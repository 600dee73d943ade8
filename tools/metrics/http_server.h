// Serves one page to scrapers: one thread, one poll loop, everything bounded.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "files/unique_fd.h"

namespace tally {

class HttpServer {
 public:
  HttpServer();
  ~HttpServer();

  // listen opens ADDR:PORT, [ADDR6]:PORT or PORT (on 127.0.0.1; 0: any that is free). Returns an
  // empty text, or why not.
  std::string listen(const std::string& where);

  // address returns where it listens, as a URL has it.
  const std::string& address() const { return address_; }

  // serve_once waits until something happens at the server or at `also` (a descriptor), or a
  // connection is too slow, and does what can be done without waiting. `page` makes what /metrics
  // answers; one that is less than a second old is used again.
  void serve_once(int also, const std::function<std::string()>& page);

 private:
  struct Connection;
  void accept_all();
  void receive(Connection& connection, const std::function<std::string()>& page);
  static void send_more(Connection& connection);

  UniqueFd socket_;
  std::string address_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::shared_ptr<const std::string> page_;
  std::int64_t page_made_ = 0;  // steady milliseconds
};

}  // namespace tally
