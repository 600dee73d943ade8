// What the files of a collection tell about how far its rows can be trusted.
//
// A delta file alone does not show that a counter was reset, that the agent restarted, or that an
// interface moved. The samples do: they are read beside the rows that are shown, in one pass and
// in the order of the files, matched as the daemon matches them. Nothing is guessed: what the
// files cannot tell is said to be unknown.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "records/collection_files.h"

namespace tally {

// RowNotes is a set of notes about one row: bit N is row_note_texts()[N].
using RowNotes = std::uint8_t;

enum RowNote : RowNotes {
  kNewRow = 1,          // not found in the sample before: the whole count / interval
  kReset = 2,           // a counter went down: its "rate" is the raw count, not divided
  kNegative = 4,        // a rate below 0: 64-bit and 32-bit counters met
  kAboveSpeed = 8,      // more octets than the line carries, or a utilisation that was cut at 100
  kUnchanged = 16,      // of a sample: all counters as in the sample before
  kRenamed = 32,        // the interface index had another name
  kMoved = 64,          // the interface name had another index
  kSpeedUnknown = 128,  // ifSpeed is at its limit of 32 bits: utilisation is too high
};
inline constexpr std::size_t kRowNoteCount = 8;

// is_rate tells whether the values of a row are what they are called.
constexpr bool is_rate(RowNotes notes) {
  return (notes & (kReset | kNegative)) == 0;
}

struct RowNoteText {
  const char* code;
  const char* meaning;  // of one row
};
const std::array<RowNoteText, kRowNoteCount>& row_note_texts();

// row_note_codes lists the codes of a set, separated by `separator`.
std::string row_note_codes(RowNotes notes, const char* separator);

// FileNote is a note about the whole file.
struct FileNote {
  const char* code;
  std::string text;
  bool cut_short = false;  // rows are missing that were there
};

struct AnnotateOptions {
  std::optional<std::int32_t> planned_interval;  // seconds, from the preferences
  double line_speed = 0;          // bits per second of the source of an agent's rows; 0: unknown
  std::vector<Covered> others{};  // what the delta files of all collections cover
};

// seen_interval returns the shortest interval of the delta files that are no older than they should
// be: what a message has made of the plan. Nothing when there are none.
std::optional<std::int32_t> seen_interval(const std::vector<Covered>& all, std::int64_t now);

// Annotator is given every row of `files.main`, in order.
class Annotator {
 public:
  // `files` must be good and outlive the annotator.
  Annotator(const OpenFiles& files, const AnnotateOptions& options);

  // next returns the notes of the next row.
  RowNotes next(const unsigned char* record);

  // finish reads what is left of the samples and returns the notes about the file.
  std::vector<FileNote> finish();

 private:
  const unsigned char* previous_of(const unsigned char* last);
  void pass_previous();
  void read_rest();
  void add_cut_notes(std::vector<FileNote>& notes) const;
  const unsigned char* last_of(const unsigned char* shown, const unsigned char*& previous);
  RowNotes compare(const unsigned char* shown, const unsigned char* last,
                   const unsigned char* previous);
  RowNotes compare_names(const unsigned char* last, const unsigned char* previous);
  RowNotes rate_notes(const unsigned char* shown, const unsigned char* last) const;
  void read_names();

  const OpenFiles& files_;
  const AnnotateOptions options_;
  const RecordLayout& shown_;              // of the rows that are given
  const RecordLayout* samples_ = nullptr;  // of the samples, where there are any
  std::optional<Records> last_;
  std::optional<Records> prev_;
  const unsigned char* prev_row_ = nullptr;
  bool prev_row_found_ = false;  // it has a row in the last sample
  std::optional<std::size_t> name_column_;
  std::unordered_map<std::string, std::uint32_t> names_before_;
  std::vector<std::string> moves_;  // the first few, in words
  std::uint64_t lost_ = 0;          // rows without a row in the last sample
  std::uint64_t unchanged_ = 0;     // rows of the last sample that are not in the delta file
  std::uint64_t missing_ = 0;       // those of them, behind the last row, that should be
  std::uint64_t vanished_ = 0;      // rows of the older sample without a row in the last one
  std::uint64_t behind_ = 0;        // new rows that sort behind the whole of the older sample
  std::array<std::uint64_t, kRowNoteCount> counts_{};
};

// read_rows gives every row of `files.main`, which must be good, with its notes, in order, until
// `take` returns false. Returns the notes about the file. Without options there are none.
std::vector<FileNote> read_rows(const OpenFiles& files, const AnnotateOptions* options,
                                const std::function<bool(const unsigned char*, RowNotes)>& take);

// file_notes returns the notes about the file, for those who show no rows.
std::vector<FileNote> file_notes(const OpenFiles& files, const AnnotateOptions& options);

}  // namespace tally
