// Reads back what record has kept in round robin databases.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "names/names.h"
#include "records/collection_name.h"
#include "records/record_columns.h"

namespace tally {

// Where the unit of the recorder keeps its databases.
inline constexpr const char* kHistoryDirectory = "/var/lib/tallyd";

// KeptRow is a row with a database of its own.
struct KeptRow {
  std::string file;                   // its path
  std::vector<unsigned char> record;  // its key, as in a file of the collection; no rates
};

// key_text writes all of a row's key, or of it what people are shown, with names if there are some;
// its columns are separated by blanks.
std::string key_text(const RecordLayout& layout, const KeptRow& row);
std::string people_key_text(const RecordLayout& layout, const KeptRow& row, const Names* names);

// kept_rows lists the rows of a collection that have a database, in the order of their names; none
// without a directory. With `error` set it could not be read.
std::vector<KeptRow> kept_rows(const std::string& directory, const Collection& collection,
                               const RecordLayout& layout, std::string& error);

// Series holds the rates of one row. `columns` are numbers of the layout's; values[c][i] is the
// rate of columns[c] over the `step` seconds that end at begin + (i + 1) * step, NaN where it is
// unknown.
struct Series {
  std::int64_t begin = 0;
  std::int64_t step = 0;
  std::vector<std::size_t> columns;
  std::vector<std::vector<double>> values;
};

// read_series reads the means from `since` to `until` (seconds since the epoch), in the finest
// steps that the database has for all of that time. Nothing, with `error` set, when it cannot be
// read.
std::optional<Series> read_series(const KeptRow& row, const RecordLayout& layout,
                                  std::int64_t since, std::int64_t until, std::string& error);

}  // namespace tally
