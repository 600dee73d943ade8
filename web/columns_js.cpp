// columns_js: writes columns.js, which tells the live page what the records of each type hold.
//
// The page gets the one table of columns that tallyctl has, as data: see page/layouts.js for what
// it makes of them.
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "daemon/base/collection_types.h"
#include "records/cell_text.h"
#include "records/record_columns.h"

namespace tally {
namespace {

using Json = nlohmann::ordered_json;

// What the page calls each kind, unit and rule, in their order. It reads no speed and nothing
// unused: of the samples, which have them, it takes no more than the counters.
constexpr const char* kKinds[] = {"number", "total", "length",  "mac",    "address",
                                  "name",   "rate",  "percent", "unused", "unused"};
constexpr const char* kUnits[] = {"", "octets", "packets", "events", "percent", ""};
constexpr const char* kTotals[] = {"none", "sum", "row"};
static_assert(std::size(kKinds) == static_cast<std::size_t>(ColumnKind::unused) + 1);
static_assert(std::size(kUnits) == static_cast<std::size_t>(Unit::bits) + 1);
static_assert(std::size(kTotals) == static_cast<std::size_t>(TotalRule::row) + 1);

template <class Enumerator, std::size_t kSize>
const char* word(const char* const (&words)[kSize], Enumerator of) {
  return words[static_cast<std::size_t>(of)];
}

Json columns_of(const RecordLayout& layout) {
  Json columns = Json::array();
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    columns.push_back({{"name", column.name},
                       {"heading", heading_text(column, FileKind::delta)},
                       {"kind", word(kKinds, column.kind)},
                       {"offset", layout.offsets[i]}});
    if (i >= layout.key_columns) columns.back()["unit"] = word(kUnits, column.unit);
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
                   {"total", word(kTotals, layout->total)},
                   {"supervisor", is_supervisor_type(code)},
                   {"creatable", code != kDsMatrix},
                   {"people", people_columns(*layout)},
                   {"columns", columns_of(*layout)}});
  }
  return all;
}

}  // namespace
}  // namespace tally

int main() {  // NOLINT(bugprone-exception-escape): then the build fails
  std::string text = "// Made by columns_js when tallyd is built, from the columns of tallyctl.\n";
  text += "export const HEADER_SIZE = " + std::to_string(sizeof(tally::FileHeader)) + ";\n";
  text += "export const TOTAL = " + std::to_string(tally::kTotalIndex) + ";\n";
  text += "export const TYPES = [\n";
  for (const auto& type : tally::types()) text += "  " + type.dump() + ",\n";
  text += "];\n";
  return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
}
