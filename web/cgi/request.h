// What an HTTP request asks of tally-cgi, as a web server hands it over (RFC 3875).
//
//   GET                                                       list the collections
//   GET  ?names=host/3,ifstats/0                              names of what is in delta files
//   GET  ?history=host/3&span=day[&column=NAME][&row=KEY]     rates of the past
//   GET  ?sources                                             what there is to be collected
//   POST {"message":"viewing","type":"host","index":3}        one control message
//
// A message is taken from a page of the same origin only, because the browsers of the appliance's
// users also show the pages of others: the request must carry an Origin that is this server, the
// header "X-Tally-Control: 1" and the type application/json, which no foreign page can send without
// the server's leave, and nothing in it may say that another site made it. The sources, for which
// the agent is asked, want that header, too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "daemon/base/control_message.h"
#include "records/collection_name.h"

namespace tally::cgi {

// The longest body of a request that says anything this program understands.
inline constexpr std::size_t kMaxBody = 256;

// Refusal is thrown where a request does not get what it asks for: the status of the answer, and a
// sentence for the person in front of the page.
struct Refusal : std::runtime_error {
  Refusal(int code, const std::string& text) : std::runtime_error(text), status(code) {}

  int status;
};

struct ListRequest {};

// NamesRequest asks for the names of these collections' keys.
struct NamesRequest {
  std::vector<Collection> collections;
};

// Span is a time that ends now, and how much of it a value of its history covers.
struct Span {
  const char* name;
  std::int32_t seconds;
  std::int32_t step;
};
inline constexpr Span kSpans[] = {{"hour", 3600, 15},
                                  {"day", 86'400, 180},
                                  {"week", 604'800, 1800},
                                  {"year", 31'536'000, 86'400}};

// HistoryRequest asks for one rate of a collection's busiest rows, or for all rates of one row.
struct HistoryRequest {
  Collection collection;
  Span span;
  std::size_t column;
  std::string row;  // its key as people are shown it, without names; empty: the busiest rows
};

struct SourcesRequest {};

using Request =
    std::variant<ListRequest, NamesRequest, HistoryRequest, SourcesRequest, ControlMessage>;

// Variables gives the meta-variable of a name; empty when it is not set.
using Variables = std::function<std::string_view(const char* name)>;

// body_length says how many bytes of body are to be read for parse_request, at most kMaxBody.
// Throws Refusal with a status of 4xx, as parse_request does.
std::size_t body_length(const Variables& variables);

// parse_request judges a whole request. Only viewing, create and destroy of a collection that can
// exist come out as a message; of the supervisor kinds, which have no index, with index 0.
Request parse_request(const Variables& variables, std::string_view body);

}  // namespace tally::cgi
