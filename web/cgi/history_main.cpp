// tally-history: the history of the live page, a program of its own for the sake of librrd;
// tally-cgi hands requests on to it.
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "answer.h"
#include "history/history_reader.h"
#include "past.h"

namespace tally::cgi {
namespace {

int serve() {
  const Request request = parse_request(variable, "");
  const auto* history = std::get_if<HistoryRequest>(&request);
  if (history == nullptr) return refuse(400, "Only a history is told here.");
  // Where tests keep theirs; no header of a request has such a name.
  const std::string_view elsewhere = variable("TALLYD_HISTORY");
  const auto told = list_history(elsewhere.empty() ? kHistoryDirectory : std::string(elsewhere),
                                 *history, std::time(nullptr));
  const auto* refusal = std::get_if<Refusal>(&told);
  return refusal != nullptr ? refuse(refusal->status, refusal->text)
                            : answer(200, std::get<nlohmann::json>(told));
}

}  // namespace
}  // namespace tally::cgi

int main() {
  return tally::cgi::run(tally::cgi::serve);
}
