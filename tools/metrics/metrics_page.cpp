#include "metrics/metrics_page.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <set>
#include <unordered_map>

#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "metrics/exposition.h"
#include "pipe/pipe_writer.h"
#include "probes/daemon_probe.h"
#include "probes/settings_probe.h"
#include "records/annotate.h"
#include "records/cell_text.h"
#include "views/row_selection.h"

namespace tally {
namespace {

// A scrape does not wait for a writer: the page says that there was one.
constexpr std::chrono::milliseconds kPatience{100};

// Series are rows with their labels written once: each has a line in every family.
struct Series {
  std::size_t width = 0;            // values of a row
  std::vector<std::string> labels;  // by row
  std::vector<double> values;       // row after row

  double value(std::size_t row, std::size_t column) const { return values[row * width + column]; }
};

// NamesByLabel has a line of labels for each value that has a name, by the label of the value.
using NamesByLabel = std::map<std::string, std::set<std::string>>;

// Gathered is one collection as the page shows it.
struct Gathered {
  Collection collection{};
  std::string labels;  // type and index
  FileKind source{};   // where the values come from
  FileHeader header{};
  std::optional<std::int32_t> interval;
  std::vector<FileNote> notes;
  FileState states[3]{};
  bool good = false;
  std::uint64_t count = 0;
  std::uint64_t rest_count = 0;
  Series series;
  std::vector<double> all;
  std::vector<double> rest;
  std::vector<double> source_totals;  // the row that the agent itself sums up
  NamesByLabel names;
};

std::string collection_labels(const Collection& collection) {
  std::string labels = label("type", type_stem(collection.type));
  if (is_agent_type(collection.type)) {
    labels += ',';
    labels += label("index", fmt::to_string(collection.index));
  }
  return labels;
}

void append_key_labels(std::string& labels, const RecordLayout& layout,
                       const unsigned char* record) {
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    const Column& column = layout.columns[i];
    if (!is_visible(column.kind)) continue;
    const std::string text = cell_text(layout, record, i, NumberStyle::exact);
    labels.append(",").append(column.metric).append("=\"");
    // An address or a number has nothing in it that needs escaping.
    labels += column.kind == ColumnKind::name ? label_escaped(text) : text;
    labels += '"';
  }
}

void add_to(double* sums, std::size_t count, const RecordLayout& layout,
            const unsigned char* record) {
  for (std::size_t i = 0; i < count; ++i)
    sums[i] += value_of(layout, record, layout.key_columns + i);
}

void add_names(const RecordLayout& layout, const unsigned char* record, const Names& names,
               NamesByLabel& found) {
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    const std::string name = names.name_of(layout, record, i);
    if (name.empty()) continue;
    const std::string of = layout.columns[i].metric;
    found[of].insert(label(of, cell_text(layout, record, i, NumberStyle::exact)) + "," +
                     label(of + "_name", name));
  }
}

// gather_rows picks the rows with series of their own and sums up the rest.
void gather_rows(const OpenFile& file, std::size_t top, const Names& names, Gathered& gathered) {
  const RecordLayout& layout = *file.layout;
  const std::size_t width = layout.columns.size() - layout.key_columns;
  gathered.all.assign(width, 0);
  // Where all have room nothing needs to be put in order.
  const bool room = file.count() <= top;
  RowSelection selection(layout, room ? RowOrder{} : RowOrder{layout.rank, false, top});
  std::vector<unsigned char> before;
  bool ascending = true;  // then no two keys are alike
  Records records = file.records();
  while (const unsigned char* record = records.next()) {
    ++gathered.count;
    ascending = ascending && (before.empty() || compare_keys(layout, before.data(), record) < 0);
    before.assign(record, record + layout.key_size);
    if (is_total(layout, record)) {
      gathered.source_totals.assign(width, 0);
      add_to(gathered.source_totals.data(), width, layout, record);
      continue;
    }
    add_to(gathered.all.data(), width, layout, record);
    if (top != 0) selection.add(record, 0);
  }
  gathered.rest = gathered.all;
  Series& series = gathered.series;
  series.width = width;
  // Of keys that look alike, as those of cut addresses do, one series shows the sum.
  std::unordered_map<std::string, std::size_t> places;
  const std::vector<Row> rows = selection.rows();
  series.labels.reserve(rows.size());
  series.values.reserve(rows.size() * width);
  for (const Row& row : rows) {
    std::string labels = gathered.labels;
    append_key_labels(labels, layout, row.record);
    std::size_t place = series.labels.size();
    if (!ascending) place = places.try_emplace(labels, place).first->second;
    if (place == series.labels.size()) {
      series.labels.push_back(std::move(labels));
      series.values.resize(series.values.size() + width);
    }
    add_to(&series.values[place * width], width, layout, row.record);
    add_names(layout, row.record, names, gathered.names);
    for (std::size_t i = 0; i < width; ++i) {
      gathered.rest[i] -= value_of(layout, row.record, layout.key_columns + i);
    }
  }
  gathered.rest_count = gathered.count - rows.size() - (gathered.source_totals.empty() ? 0U : 1U);
  if (gathered.rest_count == 0) gathered.rest.assign(width, 0);  // no dust of roundings
}

Gathered gather(const ToolPaths& paths, const Collection& collection,
                const AnnotateOptions& annotate, std::size_t top, const Names& names) {
  Gathered gathered;
  gathered.collection = collection;
  gathered.labels = collection_labels(collection);
  gathered.source =
      record_layout(collection.type, FileKind::last) == nullptr ? FileKind::delta : FileKind::last;
  for (std::size_t i = 0; i < std::size(kFileKinds); ++i) {
    if (record_layout(collection.type, kFileKinds[i]) == nullptr) continue;
    const OpenFiles files =
        open_files(paths.data_directory, collection, kFileKinds[i],
                   kFileKinds[i] == FileKind::delta ? Samples::both : Samples::none, kPatience);
    gathered.states[i] = files.main.state;
    if (!files.main.good()) continue;
    if (kFileKinds[i] == FileKind::delta) {
      gathered.interval = files.main.header.interval;
      gathered.notes = file_notes(files, annotate);
    }
    if (kFileKinds[i] != gathered.source) continue;
    gathered.good = true;
    gathered.header = files.main.header;
    gather_rows(files.main, top, names, gathered);
  }
  return gathered;
}

// MetricName is how the values of one column are called.
struct MetricName {
  std::string unit;  // at the end of the name
  const char* type;
  const char* help;
  double factor = 1;  // to the base unit
};

MetricName name_of(const Column& column, FileKind source) {
  switch (column.kind) {
    case ColumnKind::percent:
      return {"_ratio", "gauge", "Utilisation of the line between the two samples, 0 to 1", 0.01};
    case ColumnKind::speed:
      return {"_bytes_per_second", "gauge", "Line speed as the supervisor tells it, an eighth of",
              0.125};
    default:
      break;
  }
  if (source == FileKind::delta) return {"_per_second", "gauge", "Change per second of", 1};
  return {"_total", "counter", "Count of the last sample of", 1};
}

// add_rows writes the families of one type: all of its collections, column by column.
void add_rows(const std::vector<const Gathered*>& collections, Exposition& page) {
  const Gathered& first = *collections.front();
  const RecordLayout& layout = *record_layout(first.collection.type, first.source);
  const std::string prefix = fmt::format("tallyd_{}_", type_stem(first.collection.type));
  const auto family = [&](const char* infix, const Column& column, const MetricName& name,
                          const char* type, const char* which) {
    page.family(prefix + infix + column.metric + (type == name.type ? name.unit : ""), type,
                fmt::format("{} {}{}", name.help, column.name, which));
  };
  for (std::size_t i = layout.key_columns; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    if (!is_visible(column.kind)) continue;
    const std::size_t at = i - layout.key_columns;
    const MetricName name = name_of(column, first.source);
    family("", column, name, name.type, "");
    for (const Gathered* each : collections) {
      for (std::size_t row = 0; row < each->series.labels.size(); ++row) {
        page.sample(each->series.labels[row], each->series.value(row, at) * name.factor);
      }
    }
    if (column.kind != ColumnKind::counter) continue;  // sums of these mean nothing
    family("all_", column, name, name.type, ", of all rows together");
    for (const Gathered* each : collections) page.sample(each->labels, each->all[at]);
    family("rest_", column, name, "gauge", ", of the rows without series of their own");
    for (const Gathered* each : collections) page.sample(each->labels, each->rest[at]);
    if (std::none_of(collections.begin(), collections.end(),
                     [](const Gathered* each) { return !each->source_totals.empty(); })) {
      continue;
    }
    family("source_", column, name, name.type, ", of the whole source as the agent counts it");
    for (const Gathered* each : collections) {
      if (!each->source_totals.empty()) page.sample(each->labels, each->source_totals[at]);
    }
  }
}

void add_collections(const std::vector<Gathered>& all, Exposition& page) {
  const std::int64_t now = std::time(nullptr);
  const auto each_good = [&](const char* name, const char* help, const auto& value) {
    page.family(name, "gauge", help);
    for (const Gathered& each : all) {
      if (each.good) page.sample(each.labels, static_cast<double>(value(each)));
    }
  };
  page.family("tallyd_file_good", "gauge",
              "1 when a file of the collection has the right size and header; else the state says "
              "what is wrong");
  for (const Gathered& each : all) {
    for (std::size_t i = 0; i < std::size(kFileKinds); ++i) {
      if (record_layout(each.collection.type, kFileKinds[i]) == nullptr) continue;
      page.sample(each.labels + "," + label("file", file_kind_name(kFileKinds[i])) + "," +
                      label("state", file_state_code(each.states[i])),
                  each.states[i] == FileState::good ? 1 : 0);
    }
  }
  each_good("tallyd_sample_age_seconds", "Time since the last sample, when this page was made",
            [&](const Gathered& each) { return now - each.header.sample_time; });
  each_good("tallyd_sample_timestamp_seconds", "When the last sample was taken",
            [](const Gathered& each) { return each.header.sample_time; });
  each_good("tallyd_rows", "Rows of the file that the values come from",
            [](const Gathered& each) { return each.count; });
  each_good("tallyd_rest_rows", "Rows without series of their own",
            [](const Gathered& each) { return each.rest_count; });
  page.family("tallyd_interval_seconds", "gauge", "Time between the last two samples");
  for (const Gathered& each : all) {
    if (each.interval) page.sample(each.labels, *each.interval);
  }
  page.family("tallyd_note", "gauge", "1 for each remark about the last interval");
  for (const Gathered& each : all) {
    for (const FileNote& note : each.notes) {
      page.sample(each.labels + "," + label("code", note.code), 1);
    }
  }
}

// add_named writes a family for each label whose values have names, to be joined to the series.
void add_named(std::vector<Gathered>& all, Exposition& page) {
  NamesByLabel found;
  for (Gathered& each : all) {
    for (auto& [of, lines] : each.names) found[of].merge(lines);
  }
  for (const auto& [of, lines] : found) {
    page.family("tallyd_" + of + "_name", "gauge", "1 for each name of a value of the label " + of);
    for (const std::string& line : lines) page.sample(line, 1);
  }
}

void add_daemon(const ToolPaths& paths, const std::optional<std::int32_t>& planned,
                Exposition& page) {
  page.gauge("tallyd_up", "1 when tallyd runs", probe_daemon(paths.pid_file).running ? 1 : 0);
  page.gauge("tallyd_pipe_read", "1 when somebody reads the control pipe",
             probe_pipe(paths.control_pipe).state == PipeState::read ? 1 : 0);
  if (!planned) return;
  page.gauge("tallyd_planned_interval_seconds", "Poll interval of the preferences", *planned);
}

void add_own_health(std::chrono::steady_clock::time_point begun, bool listed, Exposition& page) {
  page.family("tallyctl_build_info", "gauge", "Which tallyctl made this page");
  page.sample(label("version", kVersion), 1);
  page.gauge("tallyctl_directory_readable", "1 when the collection files can be listed",
             listed ? 1 : 0);
  page.gauge("tallyctl_page_duration_seconds", "Time it took to make this page",
             std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
  rusage usage{};
  (void)getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  page.family("tallyctl_cpu_seconds_total", "counter", "Processor time of this tallyctl");
  page.sample("", seconds(usage.ru_utime) + seconds(usage.ru_stime));
  page.gauge("tallyctl_max_resident_memory_bytes", "Most memory that it has used",
             static_cast<double>(usage.ru_maxrss) * 1024);
}

}  // namespace

void write_metrics_page(const ToolPaths& paths, const std::vector<Collection>& collections,
                        std::size_t top, Names& names, Output& output) {
  const auto begun = std::chrono::steady_clock::now();
  const AnnotateOptions annotate = annotate_options(paths);
  std::string error;
  std::vector<Collection> wanted = present_collections(paths.data_directory, error);
  if (!collections.empty()) wanted = collections;
  names.refresh();
  std::vector<Gathered> all;
  all.reserve(wanted.size());
  for (const Collection& collection : wanted) {
    all.push_back(gather(paths, collection, annotate, top, names));
  }
  Exposition page(output);
  add_daemon(paths, annotate.planned_interval, page);
  add_collections(all, page);
  std::map<std::uint32_t, std::vector<const Gathered*>> by_type;
  for (const Gathered& each : all) {
    if (each.good) by_type[each.collection.type].push_back(&each);
  }
  for (const auto& [type, alike] : by_type) add_rows(alike, page);
  add_named(all, page);
  add_own_health(begun, error.empty(), page);
}

}  // namespace tally
