#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

#include "answers.h"
#include "history/history_reader.h"
#include "records/record_cell.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostRows = 8;
constexpr std::chrono::seconds kPatience{3};

// Steps of equal length, the last of which `now` lies in; seconds since the epoch.
struct Steps {
  std::int64_t begin;
  std::int64_t length;
  std::int64_t now;
};

// in_steps gives the means of a series' rates in these steps.
std::vector<double> in_steps(const Series& series, const std::vector<double>& rates,
                             const Steps& steps) {
  const auto count = static_cast<std::size_t>((steps.now - steps.begin) / steps.length + 1);
  std::vector<double> means(count), known(count);
  std::int64_t from = series.begin;
  for (const double rate : rates) {
    std::int64_t at = std::max(from, steps.begin);
    from += series.step;
    while (std::isfinite(rate) && at < std::min(from, steps.now)) {
      const std::int64_t step = (at - steps.begin) / steps.length;
      const std::int64_t end = std::min({from, steps.now, steps.begin + (step + 1) * steps.length});
      means[static_cast<std::size_t>(step)] += rate * static_cast<double>(end - at);
      known[static_cast<std::size_t>(step)] += static_cast<double>(end - at);
      at = end;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::int64_t begin = steps.begin + static_cast<std::int64_t>(i) * steps.length;
    const bool enough = known[i] > 0 && 2 * known[i] >= static_cast<double>(std::min(
                                                            steps.length, steps.now - begin));
    means[i] = enough ? means[i] / known[i] : NAN;
  }
  return means;
}

// sum_up adds what is known to the sum of all, and returns it in all.
double sum_up(std::vector<double>& total, const std::vector<double>& values) {
  double sum = 0;
  total.resize(values.size(), NAN);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (std::isnan(values[i])) continue;
    total[i] = values[i] + (std::isnan(total[i]) ? 0 : total[i]);
    sum += values[i];
  }
  return sum;
}

// numbers has null for what is not known. Five digits are more than a page shows.
Json numbers(const std::vector<double>& values) {
  Json list = Json::array();
  for (const double value : values)
    list.push_back(std::isnan(value) ? Json() : Json::parse(fmt::format("{:.5g}", value)));
  return list;
}

}  // namespace

Json answer_to(const HistoryRequest& request) {
  (void)nice(10);
  const RecordLayout& layout = *record_layout(request.collection.type);
  const char* elsewhere = std::getenv("TALLYD_HISTORY");  // of tests; no header has such a name
  const std::string directory = elsewhere != nullptr ? elsewhere : kHistoryDirectory;
  const Clock::time_point end = Clock::now() + kPatience;
  if (access(directory.c_str(), R_OK | X_OK) != 0) {
    if (errno == ENOENT)
      throw Refusal(404,
                    "No history is kept on this machine. The recorder starts with: systemctl "
                    "enable --now tallyd-record");
    throw Refusal(403, fmt::format("The web server may not read {} ({}): its user must be in the "
                                   "group tallyd, and the server started anew after that.",
                                   directory, std::strerror(errno)));
  }
  std::string error;
  std::vector<KeptRow> kept = kept_rows(directory, request.collection, layout, error);
  if (!request.row.empty()) {
    std::erase_if(kept, [&](const KeptRow& row) {
      return people_key_text(layout, row, nullptr) != request.row;
    });
  }
  if (kept.empty() && error.empty()) {
    throw Refusal(404, request.row.empty()
                           ? fmt::format("Nothing is kept of {} yet: the recorder takes down "
                                         "every sample with rates from its start on.",
                                         title(request.collection))
                           : "Nothing is kept of this row: the recorder takes down the busiest "
                             "rows of each sample.");
  }

  const std::int64_t now = std::time(nullptr);
  const Steps steps{(now - request.span.seconds) / request.span.step * request.span.step,
                    request.span.step, now};
  std::multimap<double, std::pair<const KeptRow*, Json>, std::greater<>> rows;
  std::vector<double> total;
  std::size_t left_out = kept.size();
  for (const KeptRow& row : kept) {
    if (Clock::now() > end) break;
    --left_out;
    const auto series = read_series(row, layout, steps.begin, now, error);
    if (!series) continue;
    const bool sums_up = is_total(layout, row.record.data());
    double sum = 0;
    Json rates = Json::object();
    for (std::size_t i = 0; i < series->columns.size(); ++i) {
      const std::size_t column = series->columns[i];
      if (request.row.empty() && column != request.column) continue;
      const std::vector<double> values = in_steps(*series, series->values[i], steps);
      rates[layout.columns[column].name] = numbers(values);
      std::vector<double> none;
      if (column == request.column)
        sum = sum_up(sums_up == (layout.total == TotalRule::row) ? total : none, values);
    }
    if (request.row.empty() && sums_up) continue;
    rows.emplace(sum, std::pair(&row, std::move(rates)));
    if (rows.size() > kMostRows) rows.erase(std::prev(rows.end()));
  }
  if (rows.empty() && !error.empty()) throw Refusal(500, directory + ": " + error);

  Json list = Json::array();
  Json found = Json::object();
  Names names;
  names.refresh();
  for (auto& [sum, row] : rows) {
    const unsigned char* record = row.first->record.data();
    list.push_back({{"key", fmt::format("{:02x}", fmt::join(record, record + layout.key_size, ""))},
                    {"rates", std::move(row.second)}});
    add_names(found, names, layout, record);
  }
  return Json{{"begin", steps.begin},    {"step", steps.length},      {"rows", std::move(list)},
              {"total", numbers(total)}, {"names", std::move(found)}, {"left_out", left_out}};
}

}  // namespace tally::cgi
