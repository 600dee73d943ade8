// Rows as JSON or CSV, one at a time: a document of any length in constant memory.
//
// JSON is one object: what the file is, its rows, then the notes about the file, which are known
// only when the last row has been seen. Texts are quoted by the JSON library; what is written here
// is the commas between them and the numbers, because a library's tree for each row would take
// more time than all the rest.
#pragma once

#include <string>
#include <vector>

#include "names/names.h"
#include "records/annotate.h"

namespace tally {

// json_head, rows of append_json_row with commas between them, and json_tail make
// {"collection": ..., "rows": [{...}, ...], "notes": [{"code", "text"}]}. Keys of a row are its
// columns, "total": true marks the row of totals, "notes" lists the codes of the row's notes when
// there are any. A value that is not a number becomes null. Behind a column whose value has a name
// stands that, under the column's name and "_name".
std::string json_head(const OpenFiles& files, const AnnotateOptions& options);
void append_json_row(std::string& text, const RecordLayout& layout, const unsigned char* record,
                     RowNotes notes, const Names* names);
std::string json_tail(const std::vector<FileNote>& notes);

// csv_heading and append_csv_row make a line of column names and a line for each row (RFC 4180, but
// lines end in a line feed); the column "notes" has the codes of the row's notes, separated by
// blanks. Notes about the file have no place here: the caller tells them elsewhere. With names
// there is a column of them, behind all others, for each that can have some: "hostAddress_name".
std::string csv_heading(const RecordLayout& layout, bool named);
void append_csv_row(std::string& text, const RecordLayout& layout, const unsigned char* record,
                    RowNotes notes, const Names* names);

// append_csv_names appends those last columns alone, each with a comma before it.
void append_csv_names(std::string& text, const RecordLayout& layout, const unsigned char* record,
                      const Names& names);
std::string csv_name_headings(const RecordLayout& layout);

// csv_quoted doubles the quotes of a text that CSV cannot hold as it is (RFC 4180, section 2).
std::string csv_quoted(std::string text);

}  // namespace tally
