// HTTP requests to tally-cgi, as a web server passes them on: lines NAME=VALUE, an empty line, and
// the body; and the same bytes as the name of a file.
//
// Only a complete request by a page of the same origin becomes a control message: the rules are
// written here once more, from the outside. Everything else is refused with a reason. A name
// accepted as a collection file is the one that the daemon gives that collection.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "daemon/base/collection_types.h"
#include "files/file_format.h"
#include "property.h"
#include "records/record_columns.h"
#include "request.h"

namespace tally::cgi {
namespace {

using Lines = std::map<std::string, std::string, std::less<>>;

Lines take_lines(std::string_view& input) {
  Lines lines;
  while (!input.empty()) {
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    if (line.empty()) break;
    const std::size_t equals = std::min(line.find('='), line.size());
    lines[std::string(line.substr(0, equals))] = line.substr(std::min(equals + 1, line.size()));
  }
  return lines;
}

void check_message(const ControlMessage& message, Lines& lines, std::string_view body) {
  demand(lines["REQUEST_METHOD"] == "POST", "messages are posted");
  demand(!lines["HTTP_HOST"].empty() && (lines["HTTP_ORIGIN"] == "http://" + lines["HTTP_HOST"] ||
                                         lines["HTTP_ORIGIN"] == "https://" + lines["HTTP_HOST"]),
         "from the same origin");
  demand(lines["HTTP_X_TALLY_CONTROL"] == "1" &&
             lines["CONTENT_TYPE"].starts_with("application/json") && body.size() <= kMaxBody,
         "as no form of another origin can be sent");
  demand(message.type >= 2 && message.type <= 4, "viewing, create or destroy");
  demand(message.collection_type <= kDsHost || is_supervisor_type(message.collection_type),
         "of a collection that can exist");
  demand(!is_supervisor_type(message.collection_type) || message.collection_index == 0,
         "with the index that it has");
  const char* const names[] = {"viewing", "create", "destroy"};
  const nlohmann::json asked{{"message", names[message.type - 2]},
                             {"type", type_stem(message.collection_type)},
                             {"index", message.collection_index}};
  demand(nlohmann::json::parse(body) == asked && std::count(body.begin(), body.end(), ':') == 3,
         "which is all that the body asks for, once");
}

void check_name(std::string_view name) {
  const auto known = collection_of_file(name);
  if (!known) return;
  for (const FileKind kind : {FileKind::prev, FileKind::last, FileKind::delta}) {
    const std::string path = collection_path(known->type, known->index, kind).text;
    if (path.substr(path.rfind('/') + 1) == name) return;
  }
  demand(false, "a known name is one that the daemon writes");
}

}  // namespace
}  // namespace tally::cgi

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  cgi::check_name(input);
  cgi::Lines lines = cgi::take_lines(input);
  const auto variables = [&](const char* name) {
    const auto line = lines.find(name);
    return line == lines.end() ? std::string_view() : std::string_view(line->second);
  };
  try {
    const cgi::Request request = cgi::parse_request(variables, input);
    if (const auto* message = std::get_if<ControlMessage>(&request)) {
      cgi::check_message(*message, lines, input);
      return 0;
    }
    const auto* history = std::get_if<cgi::HistoryRequest>(&request);
    demand(history == nullptr ||
               history->column >= record_layout(history->collection.type)->key_columns,
           "a history is one of rates");
    demand(!std::holds_alternative<cgi::SourcesRequest>(request) ||
               lines["HTTP_X_TALLY_CONTROL"] == "1",
           "the agent is asked for this server's own page only");
    demand(lines["REQUEST_METHOD"] == "GET" || lines["REQUEST_METHOD"] == "HEAD", "a list is got");
  } catch (const cgi::Refusal& refusal) {
    demand(refusal.status >= 400 && refusal.status < 500 && *refusal.what() != '\0',
           "every refusal has its reason");
  }
  return 0;
}
