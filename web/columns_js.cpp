// columns_js: writes columns.js, which tells the live page what the records of each type hold.
//
// The page gets the one table of columns that tallyctl has, as data: see page/layouts.js for what
// it makes of them.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "daemon/base/collection_types.h"
#include "records/cell_text.h"
#include "records/record_columns.h"

namespace tally {
namespace {

using Json = nlohmann::ordered_json;

const char* kind_word(ColumnKind kind) {
  switch (kind) {
    case ColumnKind::number:
      return "number";
    case ColumnKind::number_or_total:
      return "total";
    case ColumnKind::length:
      return "length";
    case ColumnKind::mac:
      return "mac";
    case ColumnKind::address:
      return "address";
    case ColumnKind::name:
      return "name";
    case ColumnKind::counter:
      return "rate";
    case ColumnKind::percent:
      return "percent";
    case ColumnKind::speed:
    case ColumnKind::unused:
      break;  // in samples only, of which the page reads no more than the counters
  }
  return "unused";
}

const char* unit_word(Unit unit) {
  switch (unit) {
    case Unit::octets:
      return "octets";
    case Unit::packets:
      return "packets";
    case Unit::events:
      return "events";
    case Unit::percent:
      return "percent";
    case Unit::bits:
    case Unit::none:
      break;
  }
  return "";
}

const char* total_word(TotalRule rule) {
  return rule == TotalRule::row ? "row" : rule == TotalRule::sum ? "sum" : "none";
}

Json columns_of(const RecordLayout& layout) {
  Json columns = Json::array();
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    columns.push_back({{"name", column.name},
                       {"heading", heading_text(column, FileKind::delta)},
                       {"kind", kind_word(column.kind)},
                       {"offset", layout.offsets[i]},
                       {"unit", unit_word(column.unit)},
                       {"isNamed", column.names != NameKind::none}});
  }
  return columns;
}

// order_of gives the offsets of the numbers by which rows are sorted and matched; none: by the
// octets of the key.
Json order_of(const KeyRule& rule) {
  Json offsets = Json::array();
  for (std::size_t i = 0; i < rule.words; ++i) {
    offsets.push_back(rule.from + i * sizeof(std::uint32_t));
  }
  return offsets;
}

Json types() {
  Json all = Json::array();
  for (std::uint32_t code = 0; code < kTypeSlots; ++code) {
    const RecordLayout* layout = record_layout(code);
    if (layout == nullptr) continue;
    all.push_back({{"code", code},
                   {"stem", type_stem(code)},
                   {"title", layout->title},
                   {"size", layout->size},
                   {"keySize", layout->key_size},
                   {"order", order_of(layout->key_rule)},
                   {"rank", layout->columns[layout->rank].name},
                   {"total", total_word(layout->total)},
                   {"supervisor", is_supervisor_type(code)},
                   {"creatable", code != kDsMatrix},
                   {"people", people_columns(*layout)},
                   {"columns", columns_of(*layout)}});
  }
  return all;
}

}  // namespace
}  // namespace tally

int main() {
  std::string text = "// Made by columns_js when tallyd is built, from the columns of tallyctl.\n";
  text += "export const HEADER_SIZE = " + std::to_string(sizeof(tally::FileHeader)) + ";\n";
  text += "export const TOTAL = " + std::to_string(tally::kTotalIndex) + ";\n";
  text += "export const TYPES = [\n";
  for (const auto& type : tally::types()) text += "  " + type.dump() + ",\n";
  text += "];\n";
  return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
}
