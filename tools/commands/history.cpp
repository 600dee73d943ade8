// history: what record has kept in round robin databases, as lines of small bars, JSON or CSV.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "commands/tallyctl.h"
#include "console/output.h"
#include "console/terminal.h"
#include "history/history_reader.h"
#include "records/cell_text.h"
#include "views/row_export.h"
#include "views/sparkline.h"
#include "views/view.h"

namespace tally {
namespace {

constexpr std::size_t kWidestChart = 60;
constexpr std::size_t kLineWithoutTerminal = 120;

// 90, 90s, 30min, 6h, 7d or 2w, in seconds.
std::int64_t parse_period(const std::string& text) {
  constexpr std::pair<const char*, int> kUnits[] = {{"", 1},     {"s", 1},      {"min", 60},
                                                    {"h", 3600}, {"d", 86'400}, {"w", 604'800}};
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  for (const auto& [unit, factor] : kUnits) {
    if (error == std::errc{} && number > 0 && number < 100'000 && std::string_view(end) == unit) {
      return std::int64_t{number} * factor;
    }
  }
  throw UsageError("'{}' is no period: write 90s, 30min, 6h, 7d or 2w", text);
}

// Chosen is a row with its rates.
struct Chosen {
  KeptRow row;
  Series series;
  double mean = NAN;  // of the rate that the rows are compared by
};

// Figures are what stands beside the bars of a rate; NaN when all of it is unknown.
struct Figures {
  double mean = NAN;
  double most = NAN;
  double last = NAN;
};

Figures figures_of(const std::vector<double>& values) {
  Figures figures;
  double sum = 0;
  double count = 0;
  for (const double value : values) {
    if (std::isnan(value)) continue;
    sum += value;
    ++count;
    figures.most = count == 1 ? value : std::max(figures.most, value);
    figures.last = value;
  }
  if (count > 0) figures.mean = sum / count;
  return figures;
}

const std::vector<double>* values_of(const Series& series, std::size_t column) {
  const auto at = std::find(series.columns.begin(), series.columns.end(), column);
  if (at == series.columns.end()) return nullptr;
  return &series.values[static_cast<std::size_t>(at - series.columns.begin())];
}

std::string figure_text(const Column& column, double value) {
  return std::isnan(value) ? "-" : people_text(column, value, FileKind::delta);
}

// Line is one line of the table: what it is of, figures, bars.
struct Line {
  std::string name;
  const Column* column;
  const std::vector<double>* values;
};

void print_lines(Output& output, const std::string& heading, const std::vector<Line>& lines) {
  std::size_t width = heading.size();
  for (const Line& line : lines) width = std::max(width, line.name.size());
  const Terminal terminal = look_at_terminal();
  const std::size_t columns = terminal.columns != 0 ? terminal.columns : kLineWithoutTerminal;
  const std::size_t taken = width + std::size_t{3 * 9 + 2};  // three figures and a gap
  const std::size_t room = columns > taken + 10 ? columns - taken : 10;
  output << fmt::format("{:<{}}{:>9}{:>9}{:>9}\n", heading, width, "mean", "most", "last");
  for (const Line& line : lines) {
    const Figures figures = figures_of(*line.values);
    output << fmt::format(
        "{:<{}}{:>9}{:>9}{:>9}  {}\n", line.name, width, figure_text(*line.column, figures.mean),
        figure_text(*line.column, figures.most), figure_text(*line.column, figures.last),
        sparkline(*line.values, std::min(room, kWidestChart), locale_has_blocks()));
  }
}

void print_table(Output& output, const Collection& collection, bool one_row,
                 const RecordLayout& layout, const Names& names, std::size_t column,
                 const std::vector<Chosen>& rows) {
  const Series& first = rows.front().series;
  const std::size_t count = first.values.empty() ? 0 : first.values.front().size();
  output << fmt::format("{}  {} to {}  one value in {}  rows {}\n", title(collection),
                        time_text(first.begin),
                        time_text(first.begin + first.step * static_cast<std::int64_t>(count)),
                        duration_text(first.step), rows.size());
  std::vector<Line> lines;
  if (one_row) {
    for (std::size_t i = 0; i < first.columns.size(); ++i) {
      const Column& column_of = layout.columns[first.columns[i]];
      lines.push_back({heading_text(column_of, FileKind::delta), &column_of, &first.values[i]});
    }
    return print_lines(output, people_key_text(layout, rows.front().row, &names), lines);
  }
  for (const Chosen& row : rows) {
    const auto* values = values_of(row.series, column);
    if (values == nullptr) continue;
    lines.push_back({people_key_text(layout, row.row, &names), &layout.columns[column], values});
  }
  print_lines(output, heading_text(layout.columns[column], FileKind::delta), lines);
}

// One line for each row and step, with all counters, then the names of the key; nothing where all
// are unknown.
void print_csv(Output& output, const RecordLayout& layout, const Names& names,
               const std::vector<Chosen>& rows) {
  output << "time,key";
  for (const std::size_t column : rows.front().series.columns) {
    output << ',' << layout.columns[column].name;
  }
  output << csv_name_headings(layout) << '\n';
  for (const Chosen& row : rows) {
    const Series& series = row.series;
    const std::string key = csv_quoted(key_text(layout, row.row));
    std::string called;
    append_csv_names(called, layout, row.row.record.data(), names);
    for (std::size_t i = 0; !series.values.empty() && i < series.values.front().size(); ++i) {
      std::string values;
      bool known = false;
      for (const std::vector<double>& of : series.values) {
        values += ',';
        if (std::isnan(of[i])) continue;
        known = true;
        values += number_text(of[i], NumberStyle::exact);
      }
      if (!known) continue;
      output << fmt::format("{},{}{}{}\n",
                            series.begin + series.step * static_cast<std::int64_t>(i + 1), key,
                            values, called);
      (void)output.flush_full();  // finish tells
    }
  }
}

void print_json(Output& output, const Collection& collection, const RecordLayout& layout,
                const Names& names, const std::vector<Chosen>& rows) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Chosen& row : rows) {
    nlohmann::ordered_json rates = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < row.series.columns.size(); ++i) {
      auto& values = rates[layout.columns[row.series.columns[i]].name] =
          nlohmann::ordered_json::array();
      for (const double value : row.series.values[i]) {
        values.push_back(std::isfinite(value) ? nlohmann::ordered_json(value)
                                              : nlohmann::ordered_json());
      }
    }
    nlohmann::ordered_json one = {{"key", key_text(layout, row.row)}};
    for (std::size_t i = 0; i < layout.key_columns; ++i) {
      std::string name = names.name_of(layout, row.row.record.data(), i);
      if (!name.empty()) one[std::string(layout.columns[i].name) + "_name"] = std::move(name);
    }
    one["begin"] = row.series.begin;
    one["step"] = row.series.step;
    one["rates"] = std::move(rates);
    list.push_back(std::move(one));
  }
  output
      << nlohmann::ordered_json{{"collection", title(collection)}, {"rows", std::move(list)}}.dump()
      << '\n';
}

}  // namespace

ExitCode history(const ToolPaths& /*paths*/, const Options& options) {
  const Collection& collection = options.collections.front();
  const std::int64_t period = parse_period(options.since);
  const RecordLayout& layout = *record_layout(collection.type);
  const std::size_t column =
      order_for(layout, options.column, false, 1).column.value_or(layout.rank);
  if (column < layout.key_columns) {
    throw UsageError("{} is a part of the key, not a rate", options.column);
  }
  const std::string directory =
      options.rrd_directory.empty() ? kHistoryDirectory : options.rrd_directory;
  Names names;
  names.refresh();
  std::string error;
  std::vector<KeptRow> kept = kept_rows(directory, collection, layout, error);
  if (!options.key.empty()) {
    std::erase_if(kept, [&](const KeptRow& row) {
      return key_text(layout, row) != options.key &&
             people_key_text(layout, row, &names) != options.key;
    });
  }
  const std::int64_t now = std::time(nullptr);
  std::vector<Chosen> rows;
  for (const KeptRow& row : kept) {
    auto series = read_series(row, layout, now - period, now, error);
    if (!series) continue;
    const auto* values = values_of(*series, column);
    const double mean = values != nullptr ? figures_of(*values).mean : NAN;
    rows.push_back({row, std::move(*series), mean});
  }
  if (!error.empty()) complain("{}: {}", directory, error);
  if (rows.empty()) {
    complain("{}: {} has no history{}; 'tallyctl record --rrd {}' keeps one", directory,
             title(collection), options.key.empty() ? "" : " of " + options.key, directory);
    return kAbsent;
  }
  // The busiest first, those without a known rate last.
  std::stable_sort(rows.begin(), rows.end(), [](const Chosen& left, const Chosen& right) {
    return !std::isnan(left.mean) && (std::isnan(right.mean) || left.mean > right.mean);
  });
  if (options.top != 0 && rows.size() > options.top) rows.resize(options.top);
  Output output(STDOUT_FILENO);
  if (options.csv) {
    print_csv(output, layout, names, rows);
  } else if (options.json) {
    print_json(output, collection, layout, names, rows);
  } else {
    print_table(output, collection, !options.key.empty(), layout, names, column, rows);
  }
  return finish(output) && error.empty() ? kDone : kAbsent;
}

}  // namespace tally
