#include "past.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "history/history_reader.h"
#include "naming.h"
#include "records/record_cell.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostRows = 8;
constexpr std::chrono::seconds kPatience{3};

// Rate is one rate over the time: means of equal steps, and how much of each is known.
class Rate {
 public:
  explicit Rate(std::size_t steps) : sums_(steps), known_(steps) {}

  // add counts a value that holds from `from` to `to`, in seconds since the first step's begin.
  void add(double value, std::int64_t from, std::int64_t to, std::int64_t step) {
    for (std::int64_t i = std::max<std::int64_t>(from / step, 0);
         i * step < to && i < std::ssize(sums_); ++i) {
      const auto seconds =
          static_cast<double>(std::min(to, (i + 1) * step) - std::max(from, i * step));
      sums_[static_cast<std::size_t>(i)] += value * seconds;
      known_[static_cast<std::size_t>(i)] += seconds;
    }
  }

  // values gives the means, NaN where less than half of a step is known; the last step ends at
  // `end`.
  std::vector<double> values(std::int64_t step, std::int64_t end) const {
    std::vector<double> means;
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      const auto whole = std::min(step, end - static_cast<std::int64_t>(i) * step);
      means.push_back(known_[i] > 0 && 2 * known_[i] >= static_cast<double>(whole)
                          ? sums_[i] / known_[i]
                          : NAN);
    }
    return means;
  }

 private:
  std::vector<double> sums_;
  std::vector<double> known_;
};

struct Past {
  const KeptRow* row;
  std::vector<std::pair<std::size_t, std::vector<double>>> rates;  // by column
  double most = 0;  // what the rows are compared by: the sum of the first
};

// Reader brings the databases into the steps of a request.
class Reader {
 public:
  Reader(const HistoryRequest& request, std::int64_t now)
      : request_(request),
        layout_(*record_layout(request.collection.type)),
        now_(now),
        begin_((now - request.span.seconds) / request.span.step * request.span.step) {}

  std::int64_t begin() const { return begin_; }

  // read reads the wanted rates of a row. Nothing, with `error` set, when it cannot.
  std::optional<Past> read(const KeptRow& row, std::string& error) const {
    const std::int64_t step = request_.span.step;
    const std::int64_t last = now_ / step * step;
    std::map<std::size_t, Rate> rates;
    // What the longest steps of a database do not have yet, its shorter ones do.
    for (const std::int64_t since : {begin_, last}) {
      if (since == last && step < kDay) break;
      const auto series =
          read_series(row, layout_, since, since == last || step < kDay ? now_ : last, error);
      if (!series) return std::nullopt;
      for (std::size_t c = 0; c < series->columns.size(); ++c) {
        if (request_.row.empty() && series->columns[c] != request_.column) continue;
        Rate& rate = rates
                         .try_emplace(series->columns[c],
                                      static_cast<std::size_t>((now_ - begin_) / step + 1))
                         .first->second;
        for (std::size_t i = 0; i < series->values[c].size(); ++i) {
          const std::int64_t from =
              series->begin + static_cast<std::int64_t>(i) * series->step - begin_;
          if (std::isfinite(series->values[c][i]))
            rate.add(series->values[c][i], from, from + series->step, step);
        }
      }
    }
    Past past{&row, {}, 0};
    for (const auto& [column, rate] : rates)
      past.rates.emplace_back(column, rate.values(step, now_ - begin_));
    if (past.rates.empty()) return past;
    for (const double value : past.rates.front().second) past.most += std::isnan(value) ? 0 : value;
    return past;
  }

 private:
  static constexpr std::int64_t kDay = 86'400;

  const HistoryRequest& request_;
  const RecordLayout& layout_;
  std::int64_t now_;
  std::int64_t begin_;
};

// add_up adds what is known of a row to the sum of all.
void add_up(std::vector<double>& total, const std::vector<double>& values) {
  if (total.empty()) total.assign(values.size(), NAN);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!std::isnan(values[i])) total[i] = values[i] + (std::isnan(total[i]) ? 0 : total[i]);
  }
}

// numbers has null for what is not known. Five digits are more than a page shows.
Json numbers(const std::vector<double>& values) {
  Json list = Json::array();
  for (const double value : values) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.5g", value);
    list.push_back(std::isnan(value) ? Json() : Json(std::strtod(text, nullptr)));
  }
  return list;
}

Json row_json(const RecordLayout& layout, const Past& past) {
  std::string key;
  for (std::size_t i = 0; i < layout.key_size; ++i) {
    char octet[3];
    (void)std::snprintf(octet, sizeof octet, "%02x", past.row->record[i]);
    key += octet;
  }
  Json rates = Json::object();
  for (const auto& [column, values] : past.rates)
    rates[layout.columns[column].name] = numbers(values);
  return {{"key", std::move(key)}, {"rates", std::move(rates)}};
}

Refusal nothing_kept(const std::string& directory, const HistoryRequest& request, int error) {
  if (error == ENOENT) {
    return {404,
            "No history is kept on this machine. The recorder starts with: systemctl enable --now "
            "tallyd-record"};
  }
  if (error != 0) {
    return {403,
            "The web server may not read " + directory + " (" + std::strerror(error) +
                "): its user must be in the group tallyd, and the server started anew after that."};
  }
  return {404, request.row.empty()
                   ? "Nothing is kept of " + title(request.collection) +
                         " yet: the recorder takes down every sample with rates from its start on."
                   : "Nothing is kept of this row: the recorder takes down the busiest rows of "
                     "each sample."};
}

}  // namespace

std::variant<Json, Refusal> list_history(const std::string& directory,
                                         const HistoryRequest& request, std::int64_t now) {
  const RecordLayout& layout = *record_layout(request.collection.type);
  const Clock::time_point end = Clock::now() + kPatience;
  if (access(directory.c_str(), R_OK | X_OK) != 0) return nothing_kept(directory, request, errno);
  std::string error;
  std::vector<KeptRow> kept = kept_rows(directory, request.collection, layout, error);
  if (!request.row.empty()) {
    std::erase_if(kept, [&](const KeptRow& row) {
      return people_key_text(layout, row, nullptr) != request.row;
    });
  }
  if (!error.empty()) return Refusal{500, directory + ": " + error};
  if (kept.empty()) return nothing_kept(directory, request, 0);

  const Reader reader(request, now);
  std::vector<Past> rows;
  std::vector<double> total;
  std::size_t looked_at = 0;
  for (const KeptRow& row : kept) {
    if (Clock::now() > end) break;
    ++looked_at;
    auto past = reader.read(row, error);
    if (!past || past->rates.empty()) continue;
    const bool sums_up = is_total(layout, row.record.data());
    if (request.row.empty() && sums_up == (layout.total == TotalRule::row))
      add_up(total, past->rates.front().second);
    if (request.row.empty() && sums_up) continue;
    const auto place = std::ranges::upper_bound(rows, past->most, std::greater<>(), &Past::most);
    rows.insert(place, std::move(*past));
    if (rows.size() > kMostRows) rows.pop_back();
  }
  if (rows.empty() && !error.empty()) return Refusal{500, directory + ": " + error};

  Json list = Json::array();
  NameList names(layout);
  for (const Past& past : rows) {
    list.push_back(row_json(layout, past));
    names.add(past.row->record.data());
  }
  return Json{{"begin", reader.begin()}, {"step", request.span.step},
              {"rows", std::move(list)}, {"total", numbers(total)},
              {"names", names.take()},   {"left_out", kept.size() - looked_at}};
}

}  // namespace tally::cgi
