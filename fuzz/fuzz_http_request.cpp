// Requests to the metrics endpoint, as they arrive: piece by piece.
//
// Whatever comes, the verdict is reached within the longest request, once reached it stays, and
// what is accepted is a method and an absolute path of plain characters.
#include <algorithm>
#include <cstdint>

#include "metrics/http_request.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const HttpRequest whole = parse_request(bytes);
  const std::size_t step = size / 16 + 1;
  for (std::size_t length = 0; length <= size; length += step) {
    const HttpRequest part = parse_request(bytes.substr(0, length));
    if (part.state == RequestState::malformed && length != 0) {
      demand(whole.state != RequestState::incomplete, "what is refused stays refused");
    }
    if (part.state != RequestState::complete) continue;
    demand(whole.state == RequestState::complete && whole.path == part.path &&
               whole.method == part.method,
           "what follows a request changes nothing");
  }
  demand(whole.state != RequestState::incomplete || size < kLongestRequest, "bounded");
  if (whole.state == RequestState::complete) {
    const auto plain = [](char c) { return c > 0x20 && c < 0x7f; };
    demand(!whole.method.empty() && whole.path.starts_with('/') &&
               std::all_of(whole.path.begin(), whole.path.end(), plain),
           "a method and a path");
  }
  return 0;
}
