#include "metrics/http_request.h"

#include <fmt/format.h>

#include <algorithm>

namespace tally {
namespace {

const char* reason_of(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 431:
      return "Request Header Fields Too Large";
    case 503:
      return "Service Unavailable";
    default:
      return "Bad Request";
  }
}

bool is_visible_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

// end_of_header returns where the header ends with an empty line, or npos. Line feeds alone end
// lines, too (RFC 9112, section 2.2).
std::size_t end_of_header(std::string_view bytes) {
  const std::size_t crlf = bytes.find("\r\n\r\n");
  return std::min(crlf, bytes.find("\n\n"));
}

}  // namespace

HttpRequest parse_request(std::string_view bytes) {
  HttpRequest request{RequestState::incomplete, {}, {}};
  const bool whole = end_of_header(bytes) != std::string_view::npos;
  if (!whole && bytes.size() < kLongestRequest) {
    // What cannot become a request is refused early: methods are capital letters.
    const bool plausible = bytes.empty() || (bytes.front() >= 'A' && bytes.front() <= 'Z');
    if (!plausible) request.state = RequestState::malformed;
    return request;
  }
  if (!whole || end_of_header(bytes) > kLongestRequest) {
    request.state = RequestState::too_long;
    return request;
  }
  request.state = RequestState::malformed;
  std::string_view line = bytes.substr(0, bytes.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  if (first == std::string_view::npos || last == first) return request;
  const std::string_view method = line.substr(0, first);
  const std::string_view target = line.substr(first + 1, last - first - 1);
  const std::string_view version = line.substr(last + 1);
  const bool capital = !method.empty() && std::all_of(method.begin(), method.end(),
                                                      [](char c) { return c >= 'A' && c <= 'Z'; });
  if (!capital || target.empty() || target.front() != '/' || !is_visible_ascii(target) ||
      (version != "HTTP/1.1" && version != "HTTP/1.0")) {
    return request;
  }
  request.state = RequestState::complete;
  request.method = method;
  request.path = target.substr(0, target.find('?'));
  return request;
}

std::string http_response(int status, std::string_view type, std::string_view body,
                          bool head_only) {
  std::string response = fmt::format(
      "HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n{}"
      "X-Content-Type-Options: nosniff\r\n\r\n",
      status, reason_of(status), type, body.size(), status == 405 ? "Allow: GET, HEAD\r\n" : "");
  if (!head_only) response += body;
  return response;
}

}  // namespace tally
