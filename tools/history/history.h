// Where record keeps the rates of past intervals.
//
// A rate counts for the whole interval that ends at its sample, and for nothing outside. Time that
// no delta file covers, and values that are not rates (a raw count after a reset), are unknown in
// the history, never 0 and never the next value.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "records/collection_files.h"
#include "views/row_selection.h"

namespace tally {

// Interval is one delta file: its rows, for (end - seconds, end].
struct Interval {
  const Collection& collection;
  const RecordLayout& layout;
  std::int64_t end;  // seconds since the epoch
  std::int32_t seconds;
  const std::vector<Row>& rows;
};

class History {
 public:
  virtual ~History() = default;

  // last_end returns the end of the newest interval that is kept of a collection; 0: none. It is
  // asked once for each.
  virtual std::int64_t last_end(const Collection& collection) = 0;

  // keep adds an interval that is newer than all before. Returns an empty text, or what could not
  // be kept and why; the rest is kept all the same.
  virtual std::string keep(const Interval& interval) = 0;
};

// make_csv_history appends to DIR/host_3.csv: time, interval, the columns of the row, its notes and
// names.
// A line with the note "gap" and without values stands where intervals are missing. The file is
// opened anew each time, so it may be rotated.
std::unique_ptr<History> make_csv_history(const std::string& directory);

// make_rrd_history updates one round robin database per row, DIR/host_3/KEY.rrd, with a GAUGE for
// each value: a day of single steps, eight days of ten minutes, 32 days of hours and 400 of days,
// the last two also as maxima. Of a collection's databases at most `rows` are kept: the one that
// was updated longest ago makes room.
std::unique_ptr<History> make_rrd_history(const std::string& directory, std::int32_t step,
                                          std::size_t rows);

// history_path returns DIR/host_3, where a collection's databases lie, or its file without ".csv".
std::string history_path(const std::string& directory, const Collection& collection);

// patiently repeats a call of librrd while that fails because another process has the database
// locked, for a second at most; `call` tells whether it succeeded. A reader, or the recorder, has
// it locked for some milliseconds.
bool patiently(const std::function<bool()>& call);

// rrd_error returns what librrd says of its last failure, and clears it.
std::string rrd_error();

// rrd_source_name shortens a column's name to what librrd takes (at most 19 of A-Z a-z 0-9 _).
std::string rrd_source_name(const Column& column);

// row_file_name makes a file name of a row's key; no two keys of a type have the same.
std::string row_file_name(const RecordLayout& layout, const unsigned char* record);

}  // namespace tally
