// The little of HTTP/1.1 (RFC 9112) that a scraper needs: the request line.
#pragma once

#include <string>
#include <string_view>

namespace tally {

// A request is complete with the empty line behind its header; more octets than this are no
// request of a scraper.
inline constexpr std::size_t kLongestRequest = 8192;

enum class RequestState {
  incomplete,  // more octets may make it whole
  complete,
  malformed,
  too_long,
};

struct HttpRequest {
  RequestState state;
  std::string method;
  std::string path;  // without the query; printable ASCII
};

// parse_request looks at what has arrived of a request. Header fields are passed over: none of
// them changes the answer.
HttpRequest parse_request(std::string_view bytes);

// http_response writes a whole response, after which the connection is closed. `head_only` leaves
// the body out but tells its length.
std::string http_response(int status, std::string_view type, std::string_view body,
                          bool head_only = false);

}  // namespace tally
