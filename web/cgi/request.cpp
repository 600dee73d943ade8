#include "request.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "daemon/base/collection_types.h"
#include "records/cell_text.h"
#include "records/record_columns.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr const char* kNoControlHeader = "The header X-Tally-Control: 1 is missing.";

constexpr std::size_t kMembers = 3;  // of the one object that a message is

struct MessageName {
  const char* name;
  MessageType type;
};

// The messages that a page may send; the others of the pipe are not for its users.
constexpr MessageName kMessages[] = {
    {"viewing", MessageType::viewing},
    {"create", MessageType::create},
    {"destroy", MessageType::destroy},
};

std::optional<MessageType> message_type(std::string_view name) {
  for (const MessageName& each : kMessages) {
    if (name == each.name) return each.type;
  }
  return std::nullopt;
}

std::optional<std::uint32_t> collection_type(std::string_view stem) {
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    const char* name = type_stem(type);
    if (name != nullptr && stem == name) return type;
  }
  return std::nullopt;
}

std::string_view without_scheme(std::string_view origin) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (origin.starts_with(scheme)) return origin.substr(scheme.size());
  }
  return {};
}

// foreign tells why a POST is not known to come from this server's own page; empty when it is.
// The scheme does not count: behind a proxy that ends TLS the server itself does not know it.
std::string foreign(const Variables& variables) {
  const std::string_view host = variables("HTTP_HOST");
  if (host.empty() || without_scheme(variables("HTTP_ORIGIN")) != host) {
    return "Messages are taken from this server's own page only: the Origin is another one or "
           "missing.";
  }
  const std::string_view site = variables("HTTP_SEC_FETCH_SITE");
  if (!site.empty() && site != "same-origin") {
    return "Messages are taken from this server's own page only: another site asked for this.";
  }
  if (variables("HTTP_X_TALLY_CONTROL") != "1") return kNoControlHeader;
  return {};
}

bool is_json(std::string_view content_type) {
  // "; charset=utf-8" may follow.
  const std::string_view type = content_type.substr(0, content_type.find_first_of("; "));
  return type == "application/json";
}

using Parameters = std::map<std::string, std::string, std::less<>>;

// cut takes off the front of a text what stands before a letter, and the letter.
std::string_view cut(std::string_view& text, char letter) {
  const std::string_view part = text.substr(0, text.find(letter));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

// parameters reads "history=host/3&span=day".
Parameters parameters(std::string_view query) {
  Parameters found;
  while (!query.empty()) {
    std::string_view each = cut(query, '&');
    const std::string name(cut(each, '='));
    std::string value(each);
    std::ranges::replace(value, '+', ' ');
    found[name] = unescaped(value, "%");
  }
  return found;
}

// collections_of reads "host/3", or "host/3,ifstats/0"; nothing where one of them is not a
// collection.
std::vector<Collection> collections_of(std::string_view text) {
  std::vector<Collection> all;
  while (!text.empty()) {
    std::string_view each = cut(text, ',');
    const auto type = collection_type(cut(each, '/'));
    const auto index = parse_number(each);
    if (!type || !index) return {};
    all.push_back({*type, *index});
  }
  return all;
}

Request history_of(const Collection& collection, Parameters& given) {
  const auto* span = std::ranges::find(kSpans, given["span"], &Span::name);
  if (span == std::end(kSpans)) return Refusal{400, "The span is hour, day, week or year."};
  const RecordLayout& layout = *record_layout(collection.type);
  const std::string& name = given["column"];
  const auto column = name.empty() ? layout.rank : find_column(layout, name).value_or(0);
  if (column < layout.key_columns) return Refusal{400, "There is no such rate."};
  return HistoryRequest{collection, *span, column, given["row"]};
}

Request query_of(const Variables& variables) {
  Parameters given = parameters(variables("QUERY_STRING"));
  if (given.contains("sources")) {
    if (variables("HTTP_X_TALLY_CONTROL") == "1") return SourcesRequest{};
    return Refusal{403, kNoControlHeader};
  }
  for (const char* what : {"names", "history"}) {
    if (!given.contains(what)) continue;
    auto collections = collections_of(given[what]);
    if (collections.empty())
      return Refusal{400, std::string(what) + " must be asked for as TYPE/INDEX."};
    if (std::string_view(what) == "names") return NamesRequest{std::move(collections)};
    return history_of(collections[0], given);
  }
  return ListRequest{};
}

Request message_of(std::string_view body) {
  // A member that stands twice would be read as either; the count of names finds it.
  std::size_t names = 0;
  const auto count = [&](int, Json::parse_event_t event, Json&) {
    if (event == Json::parse_event_t::key) ++names;
    return true;
  };
  const Json json = Json::parse(body, count, false);
  if (!json.is_object() || json.size() != kMembers || names != kMembers) {
    return Refusal{400, "The body is not an object of message, type and index."};
  }
  const auto text = [&](const char* name) {
    const auto member = json.find(name);
    return member != json.end() && member->is_string() ? member->get<std::string>() : std::string();
  };
  const auto message = message_type(text("message"));
  if (!message) return Refusal{400, "The message must be viewing, create or destroy."};
  const auto type = collection_type(text("type"));
  if (!type || *type == kDsMatrix) {  // of which no message makes a collection
    return Refusal{400, "There is no such type of collection, or it cannot be created."};
  }
  const auto index = json.find("index");
  if (index == json.end() || !index->is_number_unsigned() ||
      index->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
    return Refusal{400, "The index must be a number from 0 to 4294967295."};
  }
  if (is_supervisor_type(*type) && *index != 0) {
    return Refusal{400, "There is one collection of this type: its index is 0."};
  }
  return ControlMessage{static_cast<std::uint32_t>(*message), *type, index->get<std::uint32_t>()};
}

}  // namespace

std::variant<std::size_t, Refusal> body_length(const Variables& variables) {
  const std::string_view method = variables("REQUEST_METHOD");
  if (method == "GET" || method == "HEAD") return std::size_t{0};
  if (method != "POST") return Refusal{405, "Only GET and POST are understood."};
  const std::string_view text = variables("CONTENT_LENGTH");
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (text.empty() || end != text.data() + text.size() || error == std::errc::invalid_argument) {
    return Refusal{411, "The request does not say how long its body is."};
  }
  if (error != std::errc() || length > kMaxBody) return Refusal{413, "The body is too long."};
  return length;
}

Request parse_request(const Variables& variables, std::string_view body) {
  const auto length = body_length(variables);
  if (const auto* refusal = std::get_if<Refusal>(&length)) return *refusal;
  if (variables("REQUEST_METHOD") != "POST") return query_of(variables);
  if (std::string text = foreign(variables); !text.empty()) return Refusal{403, std::move(text)};
  if (!is_json(variables("CONTENT_TYPE"))) return Refusal{415, "The body is not application/json."};
  if (body.size() != std::get<std::size_t>(length)) {
    return Refusal{400, "The body is shorter than the request said."};
  }
  return message_of(body);
}

}  // namespace tally::cgi
