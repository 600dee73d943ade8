#include "views/row_export.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "daemon/base/collection_types.h"
#include "records/cell_text.h"

namespace tally {
namespace {

using Json = nlohmann::ordered_json;

void append(std::string& text, std::uint32_t number) {
  char digits[16];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

class JsonExport final : public RowExport {
 public:
  JsonExport(const RecordLayout& layout, Output& output, const Names* names)
      : layout_(layout), output_(output), names_(names) {
    bool first = true;
    for (std::size_t i = 0; i < layout.columns.size(); ++i) {
      if (!is_visible(layout.columns[i].kind)) continue;
      std::string opening(1, first ? '{' : ',');
      opening += Json(layout.columns[i].name).dump();
      opening += ':';
      fields_.push_back({i, std::move(opening)});
      first = false;
    }
  }

  void begin(const OpenFiles& files, const AnnotateOptions& options) override {
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
    output_ << text << ",\"rows\":[";
  }

  void row(const unsigned char* record, RowNotes notes) override {
    std::string& text = output_.text();
    text += first_row_ ? "\n" : ",\n";
    first_row_ = false;
    for (const Field& field : fields_) {
      text += field.opening;
      append_cell(text, record, field.column);
      if (names_ == nullptr || layout_.columns[field.column].names == NameKind::none) continue;
      const std::string name = names_->name_of(layout_, record, field.column);
      if (name.empty()) continue;
      text.append(",\"").append(layout_.columns[field.column].name).append("_name\":");
      text += Json(name).dump();
    }
    if (is_total(layout_, record)) text += ",\"total\":true";
    if (notes != 0) {
      text += ",\"notes\":[\"";
      text += row_note_codes(notes, "\",\"");
      text += "\"]";
    }
    text += '}';
    output_.flush_full();
  }

  void end(const std::vector<FileNote>& notes) override {
    Json list = Json::array();
    for (const FileNote& note : notes) list.push_back({{"code", note.code}, {"text", note.text}});
    output_ << "\n],\"notes\":" << list.dump(-1, ' ', true) << "}\n";
  }

 private:
  struct Field {
    std::size_t column;
    std::string opening;  // what stands before its value
  };

  void append_cell(std::string& text, const unsigned char* record, std::size_t column) {
    const ColumnKind kind = layout_.columns[column].kind;
    if (is_value(kind)) {
      const double value = value_of(layout_, record, column);
      if (std::isfinite(value)) {
        append_exact(text, value);
      } else {
        text += "null";
      }
    } else if (kind == ColumnKind::number || kind == ColumnKind::number_or_total) {
      append(text, number_at(record + layout_.offsets[column]));
    } else if (kind == ColumnKind::name) {
      text += Json(cell_text(layout_, record, column, NumberStyle::exact)).dump();
    } else {
      text += '"';  // an address has nothing in it that needs quoting
      text += cell_text(layout_, record, column, NumberStyle::exact);
      text += '"';
    }
  }

  const RecordLayout& layout_;
  Output& output_;
  const Names* names_;
  std::vector<Field> fields_;
  bool first_row_ = true;
};

class CsvExport final : public RowExport {
 public:
  CsvExport(const RecordLayout& layout, Output& output, const Names* names)
      : layout_(layout), output_(output), names_(names) {
    if (names != nullptr) named_ = named_columns(layout);
  }

  void begin(const OpenFiles& /*files*/, const AnnotateOptions& /*options*/) override {
    for (const Column& column : layout_.columns) {
      if (is_visible(column.kind)) output_ << column.name << ',';
    }
    output_ << "notes";
    for (const std::size_t i : named_) output_ << ',' << layout_.columns[i].name << "_name";
    output_ << '\n';
  }

  void row(const unsigned char* record, RowNotes notes) override {
    std::string& text = output_.text();
    for (std::size_t i = 0; i < layout_.columns.size(); ++i) {
      const ColumnKind kind = layout_.columns[i].kind;
      if (!is_visible(kind)) continue;
      if (is_value(kind)) {
        append_exact(text, value_of(layout_, record, i));
      } else {
        std::string cell = cell_text(layout_, record, i, NumberStyle::exact);
        text += kind == ColumnKind::name ? csv_quoted(std::move(cell)) : cell;
      }
      text += ',';
    }
    if (notes != 0) text += row_note_codes(notes, " ");
    for (const std::size_t i : named_) {
      text += ',' + csv_quoted(names_->name_of(layout_, record, i));
    }
    text += '\n';
    output_.flush_full();
  }

  void end(const std::vector<FileNote>& /*notes*/) override {}

 private:
  const RecordLayout& layout_;
  Output& output_;
  const Names* names_;
  std::vector<std::size_t> named_;  // columns that can have names
};

}  // namespace

std::vector<std::size_t> named_columns(const RecordLayout& layout) {
  std::vector<std::size_t> named;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    if (layout.columns[i].names != NameKind::none) named.push_back(i);
  }
  return named;
}

std::string csv_quoted(std::string text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"') result += '"';
    result += character;
  }
  result += '"';
  return result;
}

std::unique_ptr<RowExport> make_json_export(const RecordLayout& layout, Output& output,
                                            const Names* names) {
  return std::make_unique<JsonExport>(layout, output, names);
}

std::unique_ptr<RowExport> make_csv_export(const RecordLayout& layout, Output& output,
                                           const Names* names) {
  return std::make_unique<CsvExport>(layout, output, names);
}

}  // namespace tally
