#include "records/annotate.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "daemon/base/collection_types.h"
#include "daemon/base/schedule.h"
#include "records/cell_text.h"

namespace tally {
namespace {

// A file with more interfaces than this does not come from the daemon; names beyond are ignored, so
// that memory stays bounded whatever the bytes are.
constexpr std::size_t kMostNames = 65536;

constexpr std::size_t kMovesTold = 5;

// A table may well grow by a few rows at its end; by so many at once it hardly does.
constexpr std::uint64_t kManyNewRows = 10;

// A poll is late when it comes more than this after its time: the daemon counts whole seconds, and
// a poll waits for the one before it.
constexpr std::int64_t late_after(std::int64_t planned) {
  return std::max(planned / 10, std::int64_t{2});
}

// ifSpeed is a Gauge32 and stays at its maximum for everything faster (RFC 2863).
constexpr double kSpeedLimit = 4294967295.0;

std::string rows_text(std::uint64_t count) {
  return fmt::format("{} row{}", count, count == 1 ? "" : "s");
}

// index_of returns the interface index that a record begins with.
std::uint32_t index_of(const unsigned char* record) {
  return number_at(record);
}

// has_rate tells whether the daemon finds a rate other than 0 between two samples of a row;
// `previous` is null for a new one. Not so where a counter was reset to 0: its "rate" is that 0.
bool has_rate(const RecordLayout& layout, const unsigned char* last,
              const unsigned char* previous) {
  for (std::size_t i = layout.key_columns; i < layout.columns.size(); ++i) {
    if (layout.columns[i].kind != ColumnKind::counter) continue;
    const double now = value_of(layout, last, i);
    const double before = previous == nullptr ? 0 : value_of(layout, previous, i);
    if (now != before && now != 0) return true;
  }
  return false;
}

// same_name compares two names with their lengths, which stand before them.
bool same_name(const RecordLayout& layout, std::size_t column, const unsigned char* left,
               const unsigned char* right) {
  const std::size_t begin = layout.offsets[column - 1];
  const std::size_t end = layout.offsets[column + 1];
  return std::memcmp(left + begin, right + begin, end - begin) == 0;
}

void add_restart_note(const OpenFiles& files, std::vector<FileNote>& notes) {
  if (!files.prev || !is_agent_type(files.collection.type)) return;
  const FileHeader& newer = files.last ? files.last->header : files.main.header;
  const std::uint32_t before = files.prev->header.up_time;
  if (before == 0 || newer.up_time == 0) {
    notes.push_back({"restart-unknown",
                     "the agent's up-time is unknown, so a restart between the samples would not "
                     "show"});
  } else if (newer.up_time < before) {
    notes.push_back({"agent-restarted",
                     fmt::format("the agent restarted between the samples (its up-time fell from "
                                 "{} to {}): what was counted before is lost",
                                 before, newer.up_time)});
  }
}

// A message may have changed the plan since the preferences were read. Then all intervals are
// longer; where polls failed, another collection's is shorter.
bool is_long(const FileHeader& header, const AnnotateOptions& options) {
  const auto is_late = [&](std::int64_t planned) {
    return header.interval > planned + late_after(planned);
  };
  if (!options.planned_interval || !is_late(*options.planned_interval)) return false;
  return header.interval >= kUnviewedInterval ||
         std::ranges::any_of(options.others, [&](const Covered& other) {
           return other.begin >= std::int64_t{header.sample_time} - header.interval &&
                  is_late(other.end - other.begin);
         });
}

void add_interval_note(const OpenFiles& files, const AnnotateOptions& options,
                       std::vector<FileNote>& notes) {
  const std::int32_t interval = files.main.header.interval;
  if (files.kind != FileKind::delta) return;
  if (interval < 0) {
    notes.push_back({"clock-set-back",
                     fmt::format("the clock was set back by {} s between the samples: all rates "
                                 "are almost 0",
                                 -std::int64_t{interval})});
  } else if (interval == 0) {
    notes.push_back(
        {"zero-interval", "both samples were taken in the same second: rates are plain counts"});
  } else if (is_long(files.main.header, options)) {
    notes.push_back(
        {"long-interval",
         fmt::format("the interval is {} s: nobody was looking (then it is an hour), or "
                     "polls failed in between",
                     interval)});
  }
}

}  // namespace

std::optional<std::int32_t> seen_interval(const std::vector<Covered>& all, std::int64_t now) {
  std::optional<std::int32_t> shortest;
  for (const auto& [begin, end] : all) {
    const auto interval = static_cast<std::int32_t>(end - begin);
    if (now - end > interval + late_after(interval)) continue;
    shortest = std::min(shortest.value_or(interval), interval);
  }
  return shortest;
}

const std::array<RowNoteText, kRowNoteCount>& row_note_texts() {
  static constexpr std::array<RowNoteText, kRowNoteCount> kTexts{{
      {"new",
       "not in the sample before, or not in its place there; the whole count is spread over the "
       "interval"},
      {"reset", "a raw count, not a rate, because a counter went down since the sample before"},
      {"negative", "a rate below 0, because counters of 64 and of 32 bits met"},
      {"above-speed", "above the line speed, or cut at 100 percent"},
      {"unchanged",
       "unchanged since the sample before: idle, or carried forward because the agent left it out "
       "(the files cannot tell which)"},
      {"renamed", "an interface index that had another name before"},
      {"moved", "an interface name that had another index before"},
      {"speed-unknown",
       "an interface faster than ifSpeed can say, which makes the utilisation too high"},
  }};
  return kTexts;
}

std::string row_note_codes(RowNotes notes, const char* separator) {
  std::string codes;
  for (std::size_t bit = 0; bit < kRowNoteCount; ++bit) {
    if ((notes >> bit & 1) == 0) continue;
    if (!codes.empty()) codes += separator;
    codes += row_note_texts()[bit].code;
  }
  return codes;
}

Annotator::Annotator(const OpenFiles& files, const AnnotateOptions& options)
    : files_(files), options_(options), shown_(*files.main.layout) {
  if (files.last) last_ = files.last->records();
  if (!files.prev) return;
  samples_ = files.prev->layout;
  prev_ = files.prev->records();
  prev_row_ = prev_->next();
  for (std::size_t i = 0; i < samples_->key_columns; ++i) {
    if (samples_->columns[i].kind == ColumnKind::name) name_column_ = i;
  }
  if (name_column_) read_names();
}

void Annotator::read_names() {
  Records rows = files_.prev->records();
  while (const unsigned char* row = rows.next()) {
    if (names_before_.size() == kMostNames) return;
    names_before_.emplace(cell_text(*samples_, row, *name_column_, NumberStyle::exact),
                          index_of(row));
  }
}

// previous_of gives the sample before of a row, as the daemon finds it: rows of the older sample
// that sort before it are passed over. It must be called for each row in turn.
const unsigned char* Annotator::previous_of(const unsigned char* last) {
  if (prev_row_found_) pass_previous();
  while (prev_row_ != nullptr) {
    const int order = compare_keys(*samples_, prev_row_, last);
    prev_row_found_ = order == 0;
    if (order == 0) return prev_row_;
    if (order > 0) return nullptr;
    pass_previous();
  }
  return nullptr;
}

void Annotator::pass_previous() {
  if (!prev_row_found_) ++vanished_;
  prev_row_found_ = false;
  prev_row_ = prev_->next();
}

RowNotes Annotator::compare_names(const unsigned char* last, const unsigned char* previous) {
  RowNotes notes = 0;
  if (previous != nullptr && !same_name(*samples_, *name_column_, last, previous)) {
    notes |= kRenamed;
  }
  const std::string name = cell_text(*samples_, last, *name_column_, NumberStyle::exact);
  const auto before = names_before_.find(name);
  if (before == names_before_.end() || before->second == index_of(last)) return notes;
  if (moves_.size() < kMovesTold) {
    moves_.push_back(fmt::format("{} from {} to {}", name, before->second, index_of(last)));
  }
  return static_cast<RowNotes>(notes | kMoved);
}

// rate_notes judges the rates of a row by themselves and by the speed of the line.
RowNotes Annotator::rate_notes(const unsigned char* shown, const unsigned char* last) const {
  RowNotes notes = 0;
  double speed = options_.line_speed;
  if (files_.collection.type == kIfStats) {
    speed = 0;
    for (std::size_t i = 0; last != nullptr && i < samples_->columns.size(); ++i) {
      if (samples_->columns[i].kind == ColumnKind::speed) speed = value_of(*samples_, last, i);
    }
    if (speed >= kSpeedLimit) {
      notes |= kSpeedUnknown;
      speed = 0;
    }
  }
  for (std::size_t i = shown_.key_columns; i < shown_.columns.size(); ++i) {
    const Column& column = shown_.columns[i];
    const double value = value_of(shown_, shown, i);
    const bool cut = column.kind == ColumnKind::percent && value >= 100;
    const bool above = speed > 0 && column.kind == ColumnKind::counter &&
                       column.unit == Unit::octets && value * 8 > speed;
    if ((cut && (notes & kSpeedUnknown) == 0) || above) notes |= kAboveSpeed;
    if (value < 0) notes |= kNegative;
  }
  return notes;
}

// compare looks at one row and its samples: `last` is where the shown row was made from, or the
// shown row itself.
RowNotes Annotator::compare(const unsigned char* shown, const unsigned char* last,
                            const unsigned char* previous) {
  RowNotes notes = 0;
  if (previous == nullptr) notes |= kNewRow;
  if (previous == nullptr && prev_row_ == nullptr) ++behind_;
  bool changed = previous == nullptr;
  for (std::size_t i = samples_->key_columns; previous != nullptr && i < samples_->columns.size();
       ++i) {
    if (samples_->columns[i].kind != ColumnKind::counter) continue;
    const double now = value_of(*samples_, last, i);
    const double before = value_of(*samples_, previous, i);
    if (now != before) changed = true;
    // Where a counter wrapped, the delta file holds a rate; where it was reset, the count.
    if (files_.kind == FileKind::delta && now < before && value_of(*samples_, shown, i) == now) {
      notes |= kReset;
    }
  }
  if (!changed) notes |= kUnchanged;
  if (name_column_) notes |= compare_names(last, previous);
  return notes;
}

// last_of gives the sample that a shown row was made from, and sets `previous` to the one before;
// rows of the last sample that sort before it were left out of the delta file.
const unsigned char* Annotator::last_of(const unsigned char* shown,
                                        const unsigned char*& previous) {
  while (last_) {
    const unsigned char* row = last_->next();
    if (row == nullptr) break;
    previous = previous_of(row);
    if (compare_keys(shown_, row, shown) == 0) return row;
    ++unchanged_;
  }
  last_.reset();  // the row is of another poll: those behind it cannot be matched either
  return nullptr;
}

RowNotes Annotator::next(const unsigned char* record) {
  RowNotes notes = 0;
  if (files_.kind == FileKind::delta) {
    const unsigned char* previous = nullptr;
    const unsigned char* last = last_of(record, previous);
    if (last != nullptr) {
      notes = compare(record, last, previous);
    } else if (files_.last) {
      ++lost_;
    }
    notes |= rate_notes(record, last);
  } else if (prev_) {
    notes = compare(record, record, previous_of(record));
  }
  for (std::size_t bit = 0; bit < kRowNoteCount; ++bit) counts_[bit] += notes >> bit & 1;
  return notes;
}

// read_rest goes on to the ends of the samples, behind the last row that was given.
void Annotator::read_rest() {
  while (last_) {
    const unsigned char* row = last_->next();
    if (row == nullptr) break;
    ++unchanged_;
    if (has_rate(*samples_, row, previous_of(row))) ++missing_;
  }
  while (prev_row_ != nullptr) pass_previous();
}

// The daemon writes files from the front to the back, so what is missing when it is killed is the
// end. It carries every row of the agent on from sample to sample; the supervisor's rows may go.
void Annotator::add_cut_notes(std::vector<FileNote>& notes) const {
  if (missing_ != 0) {
    notes.push_back(
        {"cut-short",
         fmt::format("the file is cut short: {} changed behind its last one", rows_text(missing_)),
         true});
  }
  if (lost_ != 0) {
    notes.push_back({"not-in-sample",
                     fmt::format("the last sample is cut short, or in another order: it lacks {}",
                                 rows_text(lost_)),
                     true});
  } else if (vanished_ != 0 && is_agent_type(files_.collection.type)) {
    notes.push_back({"last-cut-short",
                     fmt::format("the last sample is cut short: it lacks {} of the sample before",
                                 rows_text(vanished_)),
                     true});
  }
  if (behind_ >= kManyNewRows && behind_ == counts_[std::countr_zero(RowNotes{kNewRow})]) {
    notes.push_back({"prev-cut-short",
                     "all new rows lie behind the end of the sample before: it may have been cut "
                     "short, and their rates are whole counts"});
  }
}

std::vector<FileNote> Annotator::finish() {
  std::vector<FileNote> notes;
  add_interval_note(files_, options_, notes);
  add_restart_note(files_, notes);
  read_rest();
  add_cut_notes(notes);
  if (!files_.unmatched.empty()) {
    notes.push_back({"not-compared",
                     fmt::format("rows are not compared with the samples: {}", files_.unmatched)});
  }
  for (std::size_t bit = 0; bit < kRowNoteCount; ++bit) {
    if (counts_[bit] == 0) continue;
    const auto& [code, meaning] = row_note_texts()[bit];
    std::string text = fmt::format("{}: {}", rows_text(counts_[bit]), meaning);
    if (1 << bit == kMoved) text += fmt::format(" ({})", fmt::join(moves_, ", "));
    notes.push_back({code, std::move(text)});
  }
  if (unchanged_ != 0) {
    const auto& [code, meaning] =
        row_note_texts()[static_cast<std::size_t>(std::countr_zero(RowNotes{kUnchanged}))];
    notes.push_back(
        {code, fmt::format("{} more of the last sample: {}", rows_text(unchanged_), meaning)});
  }
  return notes;
}

std::vector<FileNote> read_rows(const OpenFiles& files, const AnnotateOptions* options,
                                const std::function<bool(const unsigned char*, RowNotes)>& take) {
  std::optional<Annotator> annotator;
  if (options != nullptr) annotator.emplace(files, *options);
  Records records = files.main.records();
  while (const unsigned char* record = records.next()) {
    if (!take(record, annotator ? annotator->next(record) : RowNotes{0})) return {};
  }
  return annotator ? annotator->finish() : std::vector<FileNote>();
}

std::vector<FileNote> file_notes(const OpenFiles& files, const AnnotateOptions& options) {
  return read_rows(files, &options, [](const unsigned char*, RowNotes) { return true; });
}

}  // namespace tally
