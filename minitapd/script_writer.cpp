#include "minitapd/script_writer.h"

#include <nlohmann/json.hpp>

namespace minitapd {

namespace {

using Json = nlohmann::ordered_json;  // members in the order of a row

// In pairs of digits, with colons between them.
std::string hex_text(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (!text.empty()) text += ':';
    text += {kDigits[value >> 4], kDigits[value & 15]};
  }
  return text;
}

Json json_of(const TableShape& shape, const Row& row) {
  Json object = {{"index", row.control_index}};
  for (std::size_t i = 0; i < shape.numbers.size(); ++i) {
    if (!shape.numbers[i].empty()) object[std::string(shape.numbers[i])] = row.key.numbers[i];
  }
  for (std::size_t i = 0; i < shape.addresses.size(); ++i) {
    if (!shape.addresses[i].empty()) {
      object[std::string(shape.addresses[i])] = hex_text(row.key.addresses[i]);
    }
  }
  object["counters"] =
      std::vector(row.counters.begin(), row.counters.begin() + static_cast<long>(shape.counters));
  if (!shape.detail.empty()) object[std::string(shape.detail)] = row.detail;
  return object;
}

std::string section(std::string_view name, const std::vector<Json>& entries) {
  std::string text("\"");
  text.append(name).append("\": [");
  for (const Json& entry : entries) {
    text.append(&entry == entries.data() ? "\n  " : ",\n  ").append(entry.dump());
  }
  return text + "]";
}

}  // namespace

bool write_script(TableSource& source, std::FILE* stream) {
  std::string text = "{";
  for (std::size_t i = 0; i < kTableCount; ++i) {
    const auto table = static_cast<Table>(i);
    std::vector<Row> rows;
    source.rows_after(table, 0, {}, SIZE_MAX, rows);  // from before the first control index
    std::vector<Json> entries;
    for (const Row& row : rows) entries.push_back(json_of(shape_of(table), row));
    text.append(section(shape_of(table).name, entries)).append(",\n");
  }
  std::vector<Json> totals;
  for (const ControlRow* row = source.control_row(Table::pdist, 0, true); row != nullptr;
       row = source.control_row(Table::pdist, row->index, true)) {
    const Totals all = source.pdist_totals(row->index);
    totals.push_back({{"index", row->index}, {"counters", {all.pkts, all.octets}}});
  }
  text.append(section("pdist_totals", totals)).append("}\n");
  return std::fputs(text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
}

}  // namespace minitapd
