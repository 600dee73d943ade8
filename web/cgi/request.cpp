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

constexpr std::size_t kMembers = 3;  // of the one object that a message is

struct MessageName {
  std::string_view name;
  MessageType type;
};

// The messages that a page may send; the others of the pipe are not for its users.
constexpr MessageName kMessages[] = {
    {"viewing", MessageType::viewing},
    {"create", MessageType::create},
    {"destroy", MessageType::destroy},
};

std::optional<std::uint32_t> collection_type(std::string_view stem) {
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    const char* name = type_stem(type);
    if (name != nullptr && stem == name) return type;
  }
  return std::nullopt;
}

void want_control_header(const Variables& variables) {
  if (variables("HTTP_X_TALLY_CONTROL") == "1") return;
  throw Refusal(403, "The header X-Tally-Control: 1 is missing.");
}

// The scheme does not count: behind a proxy that ends TLS the server itself does not know it.
void refuse_foreign(const Variables& variables) {
  const auto refuse = [](const char* why) {
    throw Refusal(403, std::string("Messages are taken from this server's own page only: ") + why);
  };
  const std::string host(variables("HTTP_HOST"));
  const std::string_view origin = variables("HTTP_ORIGIN");
  if (host.empty() || (origin != "http://" + host && origin != "https://" + host)) {
    refuse("the Origin is another one or missing.");
  }
  const std::string_view site = variables("HTTP_SEC_FETCH_SITE");
  if (!site.empty() && site != "same-origin") refuse("another site asked for this.");
  want_control_header(variables);
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
  if (span == std::end(kSpans)) throw Refusal(400, "The span is hour, day, week or year.");
  const RecordLayout& layout = *record_layout(collection.type);
  const std::string& name = given["column"];
  const auto column = name.empty() ? layout.rank : find_column(layout, name).value_or(0);
  if (column < layout.key_columns) throw Refusal(400, "There is no such rate.");
  return HistoryRequest{collection, *span, column, given["row"]};
}

Request query_of(const Variables& variables) {
  Parameters given = parameters(variables("QUERY_STRING"));
  if (given.contains("sources")) {
    want_control_header(variables);
    return SourcesRequest{};
  }
  for (const std::string_view what : {"names", "history"}) {
    const auto asked = given.find(what);
    if (asked == given.end()) continue;
    auto collections = collections_of(asked->second);
    const bool names = what == "names";
    if (collections.empty() || (!names && collections.size() > 1)) {
      throw Refusal(400, std::string(what) + " must be asked for as TYPE/INDEX.");
    }
    if (names) return NamesRequest{std::move(collections)};
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
    throw Refusal(400, "The body is not an object of message, type and index.");
  }
  const auto text = [&](const char* name) {
    const auto member = json.find(name);
    return member != json.end() && member->is_string() ? member->get<std::string>() : std::string();
  };
  const auto* message = std::ranges::find(kMessages, text("message"), &MessageName::name);
  if (message == std::end(kMessages))
    throw Refusal(400, "The message must be viewing, create or destroy.");
  const auto type = collection_type(text("type"));
  if (!type || *type == kDsMatrix) {  // of which no message makes a collection
    throw Refusal(400, "There is no such type of collection, or it cannot be created.");
  }
  const auto index = json.find("index");
  if (index == json.end() || !index->is_number_unsigned() ||
      index->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
    throw Refusal(400, "The index must be a number from 0 to 4294967295.");
  }
  if (is_supervisor_type(*type) && *index != 0) {
    throw Refusal(400, "There is one collection of this type: its index is 0.");
  }
  return ControlMessage{static_cast<std::uint32_t>(message->type), *type,
                        index->get<std::uint32_t>()};
}

}  // namespace

std::size_t body_length(const Variables& variables) {
  const std::string_view method = variables("REQUEST_METHOD");
  if (method == "GET" || method == "HEAD") return 0;
  if (method != "POST") throw Refusal(405, "Only GET and POST are understood.");
  const std::string_view text = variables("CONTENT_LENGTH");
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (text.empty() || end != text.data() + text.size() || error == std::errc::invalid_argument) {
    throw Refusal(411, "The request does not say how long its body is.");
  }
  if (error != std::errc() || length > kMaxBody) throw Refusal(413, "The body is too long.");
  return length;
}

Request parse_request(const Variables& variables, std::string_view body) {
  const std::size_t length = body_length(variables);
  if (variables("REQUEST_METHOD") != "POST") return query_of(variables);
  refuse_foreign(variables);
  const std::string_view content = variables("CONTENT_TYPE");  // "; charset=utf-8" may follow
  if (content.substr(0, content.find_first_of("; ")) != "application/json") {
    throw Refusal(415, "The body is not application/json.");
  }
  if (body.size() != length) throw Refusal(400, "The body is shorter than the request said.");
  return message_of(body);
}

}  // namespace tally::cgi
