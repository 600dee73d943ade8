// tally-cgi: lists collections and writes control messages for the live page; see request.h.
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "answer.h"
#include "daemon/base/paths.h"
#include "daemon/base/retry.h"
#include "listing.h"
#include "naming.h"
#include "pipe/pipe_writer.h"
#include "request.h"
#include "sources.h"

namespace tally::cgi {
namespace {

constexpr const char* kHistory = "tally-history";

// read_body reads as many bytes of the body as were announced, or what there is of them.
std::string read_body(std::size_t length) {
  std::string body(length, '\0');
  std::size_t used = 0;
  while (used < length) {
    const ssize_t got =
        retry_interrupted([&] { return read(STDIN_FILENO, body.data() + used, length - used); });
    if (got <= 0) break;
    used += static_cast<std::size_t>(got);
  }
  body.resize(used);
  return body;
}

// sentence begins a text as a page shows it.
std::string sentence(std::string text) {
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + '.';
}

// become_history hands the request on to the program beside this one. Only that one has librrd,
// whose libraries take ten times as long to load as a list of collections to answer.
int become_history() {
  const auto program = std::filesystem::read_symlink("/proc/self/exe").replace_filename(kHistory);
  (void)execl(program.c_str(), kHistory, nullptr);
  return refuse(500, program.string() + ": " + std::strerror(errno));
}

int serve() {
  const auto length = body_length(variable);
  const auto* bytes = std::get_if<std::size_t>(&length);
  const Request request = parse_request(variable, bytes == nullptr ? "" : read_body(*bytes));
  if (const auto* refusal = std::get_if<Refusal>(&request)) {
    return refuse(refusal->status, refusal->text);
  }
  if (const auto* message = std::get_if<ControlMessage>(&request)) {
    const PipeAnswer sent = send_message(kControlPipe, *message, std::chrono::milliseconds{0});
    if (sent.state == PipeState::read) return answer(200, {{"sent", true}});
    const bool later = sent.state == PipeState::unread || sent.state == PipeState::absent ||
                       sent.state == PipeState::full;
    return refuse(later ? 503 : 500, sentence(sent.text()));
  }
  if (const auto* names = std::get_if<NamesRequest>(&request)) {
    return answer(200, list_names(kDataDirectory, names->collection));
  }
  if (std::holds_alternative<HistoryRequest>(request)) return become_history();
  if (std::holds_alternative<SourcesRequest>(request)) return answer(200, list_sources());
  return answer(200, list_collections(kDataDirectory));
}

}  // namespace
}  // namespace tally::cgi

int main() {
  return tally::cgi::run(tally::cgi::serve);
}
