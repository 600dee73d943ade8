// Rows as JSON or CSV, one at a time: a document of any length in constant memory.
//
// JSON is one object: what the file is, its rows, then the notes about the file, which are known
// only when the last row has been seen. Texts are quoted by the JSON library; what is written here
// is the commas between them and the numbers, because a library's tree for each row would take
// more time than all the rest.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "console/output.h"
#include "names/names.h"
#include "records/annotate.h"

namespace tally {

class RowExport {
 public:
  virtual ~RowExport() = default;
  virtual void begin(const OpenFiles& files, const AnnotateOptions& options) = 0;
  virtual void row(const unsigned char* record, RowNotes notes) = 0;
  virtual void end(const std::vector<FileNote>& notes) = 0;
};

// make_json_export writes {"collection": ..., "rows": [{...}, ...], "notes": [{"code", "text"}]}.
// Keys of a row are its columns, "total": true marks the row of totals, "notes" lists the codes of
// the row's notes when there are any. A value that is not a number becomes null. Behind a column
// whose value has a name stands that, under the column's name and "_name".
std::unique_ptr<RowExport> make_json_export(const RecordLayout& layout, Output& output,
                                            const Names* names = nullptr);

// make_csv_export writes a line of column names and a line for each row (RFC 4180, but lines end in
// a line feed); the column "notes" has the codes of the row's notes, separated by blanks. Notes
// about the file have no place here: the caller tells them elsewhere. With `names` there is a
// column of names, behind all others, for each that can have some: "hostAddress_name".
std::unique_ptr<RowExport> make_csv_export(const RecordLayout& layout, Output& output,
                                           const Names* names = nullptr);

// named_columns gives the columns of a type's key that can have names.
std::vector<std::size_t> named_columns(const RecordLayout& layout);

// csv_quoted doubles the quotes of a text that CSV cannot hold as it is (RFC 4180, section 2).
std::string csv_quoted(std::string text);

}  // namespace tally
