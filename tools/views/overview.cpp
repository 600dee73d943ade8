#include "views/overview.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "daemon/base/schedule.h"
#include "records/cell_text.h"

namespace tally {
namespace {

constexpr std::size_t kFollowedRows = 100;  // of each collection, whose course is remembered
constexpr std::size_t kRememberedIntervals = 9;
constexpr std::size_t kFewestBars = 8;    // where they have room: a sixth of the line
constexpr std::size_t kLongestName = 33;  // two addresses of IPv4
constexpr double kUnknown = -1;

// name_of_row calls a row by the names of its key, and by what a plain number counts. An address
// needs no protocol beside it, and the name of an interface no number.
std::string name_of_row(const RecordLayout& layout, const unsigned char* record,
                        const Names& names) {
  std::string text;
  const Column* before = nullptr;
  for (std::size_t i = layout.key_columns; i-- > 0;) {
    const Column& column = layout.columns[i];
    if (!is_visible(column.kind) || column.detail) continue;
    const bool number = column.kind == ColumnKind::number;
    if (before != nullptr && number && column.names != NameKind::group) continue;
    std::string label = names.label_of(layout, record, i, true);
    if (number && label == cell_text(layout, record, i, NumberStyle::exact)) {
      label = fmt::format("{} {}", column.heading, label);
    }
    if (before != nullptr) label += before->names == column.names ? " > " : ", ";
    text.insert(0, label);
    before = &column;
  }
  return text;
}

std::string rate_text(const Digest& digest, const std::optional<double>& rate) {
  const RecordLayout& layout = *record_layout(digest.collection.type);
  return rate ? people_text(layout.columns[layout.rank], *rate, FileKind::delta) : "-";
}

// Moment is when and how a line is written.
struct Moment {
  std::int64_t now;
  std::size_t bars;  // characters of a course
};

// OverviewColumn is how a column is written, and by which numbers lines are sorted: falling. Null:
// by none.
struct OverviewColumn {
  const char* heading;
  bool left_aligned;
  bool needed;
  std::string (*text)(const Digest&, Moment);
  double (*number)(const Digest&, Moment);
};

constexpr OverviewColumn kColumns[] = {
    {"Collection", true, true, [](const Digest& d, Moment) { return title(d.collection); },
     [](const Digest& d, Moment) { return -(d.collection.type * 0x1p32 + d.collection.index); }},
    {"State", true, true,
     [](const Digest& d, Moment m) { return std::string(health_word(d.health(m.now))); },
     [](const Digest& d, Moment m) { return static_cast<double>(d.health(m.now)); }},
    {"Total bit/s", false, true, [](const Digest& d, Moment) { return rate_text(d, d.total); },
     [](const Digest& d, Moment) { return d.total.value_or(kUnknown); }},
    {"Trend", true, false, [](const Digest& d, Moment m) { return d.course.bars("", m.bars); },
     nullptr},
    {"Busiest", true, false,
     [](const Digest& d, Moment) {
       if (!d.busiest_rate) return std::string("-");
       return d.busiest.size() <= kLongestName ? d.busiest
                                               : d.busiest.substr(0, kLongestName - 1) + '~';
     },
     nullptr},
    {"bit/s", false, false, [](const Digest& d, Moment) { return rate_text(d, d.busiest_rate); },
     [](const Digest& d, Moment) { return d.busiest_rate.value_or(kUnknown); }},
    {"Share", false, false,
     [](const Digest& d, Moment) {
       return d.total.value_or(0) > 0 && d.busiest_rate
                  ? percent_text(*d.busiest_rate / *d.total * 100)
                  : "-";
     },
     nullptr},
    {"Rows", false, false, [](const Digest& d, Moment) { return fmt::to_string(d.rows); },
     [](const Digest& d, Moment) { return static_cast<double>(d.rows); }},
    {"Age", false, false,
     [](const Digest& d, Moment m) { return d.header ? duration_text(d.age(m.now)) : "-"; },
     [](const Digest& d, Moment m) { return static_cast<double>(d.age(m.now)); }},
    {"What", true, false,
     [](const Digest& d, Moment) { return std::string(record_layout(d.collection.type)->title); },
     nullptr},
};

}  // namespace

const char* health_word(Health health) {
  constexpr const char* kWords[] = {"live", "stale", "failing", "waiting"};
  return kWords[static_cast<int>(health)];
}

void Digest::take(const OpenFiles& files, const AnnotateOptions& annotate, const Names& names) {
  const OpenFile& main = files.main;
  trouble = main.remark;
  failing = !main.good() && main.state != FileState::absent && main.state != FileState::empty;
  busiest_rate.reset();
  if (!main.good()) return header.reset();
  const RecordLayout& layout = *main.layout;
  const LoadedView loaded =
      load_view(files, RowFilter(layout, {}), {layout.rank, false, kFollowedRows}, &annotate);
  const TableView& view = loaded.view;
  if (!header || header->sample_time != main.header.sample_time) {
    course.add(view);
    intervals.insert(intervals.begin(), main.header.interval);
    intervals.resize(std::min(intervals.size(), kRememberedIntervals));
  }
  header = main.header;
  rows = view.count;
  total = sum_of(view);
  if (rows != 0) {
    busiest = name_of_row(layout, view.rows.front().record, names);
    busiest_rate = value_of(layout, view.rows.front().record, layout.rank);
  }
  for (const FileNote& note : view.notes) {
    if (!note.cut_short) continue;
    failing = true;
    trouble = note.text;
  }
}

Health Digest::health(std::int64_t now) const {
  if (failing) return Health::failing;
  if (!header) return Health::waiting;
  std::int64_t expected = std::max(header->interval, kDefaultInterval);
  if (intervals.size() >= 3) {
    std::vector<std::int32_t> sorted = intervals;
    std::ranges::sort(sorted);
    expected = sorted[sorted.size() / 2];
  }
  if (!viewed) expected = std::max<std::int64_t>(expected, kUnviewedInterval);
  return age(now) > expected + expected / 2 + 5 ? Health::stale : Health::live;
}

std::vector<TextColumn> overview_columns(std::vector<const Digest*>& digests, std::size_t sorted_by,
                                         bool reversed, std::size_t width, bool colour,
                                         std::int64_t now) {
  constexpr int kColours[] = {32, 33, 31, 35};  // of the states
  const Moment moment{now, std::max(width / 6, kFewestBars)};
  const OverviewColumn& by = kColumns[sorted_by];
  std::ranges::stable_sort(digests, [&](const Digest* left, const Digest* right) {
    if (reversed) std::swap(left, right);
    return by.number(*left, moment) > by.number(*right, moment);
  });
  std::vector<TextColumn> columns;
  for (const OverviewColumn& each : kColumns) {
    columns.push_back({{each.heading}, each.left_aligned, each.needed, &each == &by});
    for (const Digest* digest : digests) columns.back().cells.push_back(each.text(*digest, moment));
  }
  for (std::size_t i = 0; colour && i < digests.size(); ++i) {
    std::string& state = columns[1].cells[i + 1];
    state = coloured_text(state, kColours[static_cast<int>(digests[i]->health(now))]);
  }
  columns[3].colour = kBarColour;
  return columns;
}

std::size_t next_sorting(std::size_t column, bool right) {
  do {
    column = (column + (right ? 1 : std::size(kColumns) - 1)) % std::size(kColumns);
  } while (kColumns[column].number == nullptr);
  return column;
}

}  // namespace tally
