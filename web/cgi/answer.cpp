#include "answer.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr unsigned kMaxSeconds = 10;  // then SIGALRM ends the process, whatever it waits for

}  // namespace

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

int answer(int status, const Json& json) {
  std::string text = "Status: " + std::to_string(status) +
                     "\r\nContent-Type: application/json\r\nCache-Control: no-store\r\n"
                     "X-Content-Type-Options: nosniff\r\n";
  if (status == 405) text += "Allow: GET, HEAD, POST\r\n";
  text += "\r\n";
  // What was not UTF-8 where it came from (file names are, errors of the system are) is replaced.
  if (variable("REQUEST_METHOD") != "HEAD") {
    text += json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  return written && std::fflush(stdout) == 0 ? 0 : 1;
}

int refuse(int status, const std::string& text) {
  return answer(status, {{"error", text}});
}

int run(int (*serve)()) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  alarm(kMaxSeconds);
  try {
    return serve();
  } catch (const std::exception& error) {
    return refuse(500, error.what());
  }
}

}  // namespace tally::cgi
