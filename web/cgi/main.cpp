// tally-cgi: lists collections and writes control messages for the live page; see request.h. And
// tally-query, which takes its place for what needs libraries whose loading alone takes longer than
// all that tally-cgi does: librrd for a history, the RPC client for what the agent has.
//
// One request, one process, one JSON answer: {"error": "..."} with a status of 4xx or 5xx, else
// what was asked for. Nothing of it outlives the time limit, whoever sends slowly.
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "answers.h"
#include "daemon/base/paths.h"
#include "pipe/pipe_writer.h"
#include "request.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr unsigned kMaxSeconds = 10;  // then SIGALRM ends the process, whatever it waits for

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

// read_body reads as many bytes of the body as were announced, or what there is of them.
std::string read_body(std::size_t length) {
  std::string body(length, '\0');
  body.resize(std::fread(body.data(), 1, length, stdin));
  return body;
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

// sentence begins a text as a page shows it.
std::string sentence(std::string text) {
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + '.';
}

Json answer_to(const ControlMessage& message) {
  const PipeAnswer sent = send_message(kControlPipe, message, std::chrono::milliseconds{0});
  if (sent.state == PipeState::read) return {{"sent", true}};
  const bool later = sent.state == PipeState::unread || sent.state == PipeState::absent ||
                     sent.state == PipeState::full;
  throw Refusal(later ? 503 : 500, sentence(sent.text()));
}

int serve() {
  try {
    const Request request = parse_request(variable, read_body(body_length(variable)));
    return answer(200, std::visit([](const auto& each) { return answer_to(each); }, request));
  } catch (const Refusal& refusal) {
    return answer(refusal.status, {{"error", refusal.what()}});
  } catch (const std::exception& error) {
    return answer(500, {{"error", error.what()}});
  }
}

}  // namespace
}  // namespace tally::cgi

int main() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  alarm(tally::cgi::kMaxSeconds);
  return tally::cgi::serve();
}
