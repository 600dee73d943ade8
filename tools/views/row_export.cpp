#include "views/row_export.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "daemon/base/collection_types.h"
#include "records/cell_text.h"

namespace tally {
namespace {

using Json = nlohmann::ordered_json;

void append_json_cell(std::string& text, const RecordLayout& layout, const unsigned char* record,
                      std::size_t column) {
  const ColumnKind kind = layout.columns[column].kind;
  if (is_value(kind)) {
    const double value = value_of(layout, record, column);
    if (!std::isfinite(value)) {
      text += "null";
    } else {
      append_exact(text, value);
    }
  } else if (kind == ColumnKind::number || kind == ColumnKind::number_or_total) {
    append_exact(text, number_at(record + layout.offsets[column]));
  } else {
    const std::string cell = cell_text(layout, record, column, NumberStyle::exact);
    // An address has nothing in it that needs quoting.
    text += kind == ColumnKind::name ? Json(cell).dump() : '"' + cell + '"';
  }
}

}  // namespace

std::string json_head(const OpenFiles& files, const AnnotateOptions& options) {
  const FileHeader& header = files.main.header;
  Json head{{"collection", title(files.collection)},
            {"type", type_stem(files.collection.type)},
            {"index", files.collection.index},
            {"file", file_kind_name(files.kind)},
            {"sample_time", header.sample_time}};
  if (files.kind == FileKind::delta) {
    head["interval"] = header.interval;
  } else {
    head["up_time"] = header.up_time;
  }
  if (options.planned_interval) head["planned_interval"] = *options.planned_interval;
  head["row_count"] = files.main.count();
  std::string text = head.dump();
  text.pop_back();  // the object goes on
  return text + ",\"rows\":[";
}

void append_json_row(std::string& text, const RecordLayout& layout, const unsigned char* record,
                     RowNotes notes, const Names* names) {
  char before = '{';
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    if (!is_visible(column.kind)) continue;
    text.append(1, before).append("\"").append(column.name).append("\":");
    before = ',';
    append_json_cell(text, layout, record, i);
    const std::string name = names == nullptr ? "" : names->name_of(layout, record, i);
    if (name.empty()) continue;
    text.append(",\"").append(column.name).append("_name\":").append(Json(name).dump());
  }
  if (is_total(layout, record)) text += ",\"total\":true";
  if (notes != 0) text += ",\"notes\":[\"" + row_note_codes(notes, "\",\"") + "\"]";
  text += '}';
}

std::string json_tail(const std::vector<FileNote>& notes) {
  Json list = Json::array();
  for (const FileNote& note : notes) list.push_back({{"code", note.code}, {"text", note.text}});
  return "\n],\"notes\":" + list.dump(-1, ' ', true) + "}\n";
}

std::string csv_heading(const RecordLayout& layout, bool named) {
  std::string text;
  for (const Column& column : layout.columns) {
    if (is_visible(column.kind)) text.append(column.name).append(",");
  }
  return text + "notes" + (named ? csv_name_headings(layout) : "") + '\n';
}

void append_csv_row(std::string& text, const RecordLayout& layout, const unsigned char* record,
                    RowNotes notes, const Names* names) {
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const ColumnKind kind = layout.columns[i].kind;
    if (!is_visible(kind)) continue;
    if (is_value(kind)) {
      append_exact(text, value_of(layout, record, i));
    } else {
      text += csv_quoted(cell_text(layout, record, i, NumberStyle::exact));
    }
    text += ',';
  }
  if (notes != 0) text += row_note_codes(notes, " ");
  if (names != nullptr) append_csv_names(text, layout, record, *names);
  text += '\n';
}

void append_csv_names(std::string& text, const RecordLayout& layout, const unsigned char* record,
                      const Names& names) {
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    if (layout.columns[i].names == NameKind::none) continue;
    text += ',' + csv_quoted(names.name_of(layout, record, i));
  }
}

std::string csv_name_headings(const RecordLayout& layout) {
  std::string text;
  for (const Column& column : layout.columns) {
    if (column.names != NameKind::none) text.append(",").append(column.name).append("_name");
  }
  return text;
}

std::string csv_quoted(std::string text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"') result += '"';
    result += character;
  }
  return result + '"';
}

}  // namespace tally
