// Delta files, as tallyctl reads and shows them.
//
// Any bytes are a delta file of one type at most. What is accepted has the size that its rows
// explain, its values written back give the same bytes (so no byte of a record is without a
// column), and its table has a line per row and nothing in it that a terminal would obey.
#include <algorithm>
#include <numeric>
#include <string>
#include <variant>
#include <vector>

#include "daemon/collection_types.h"
#include "delta_reader.h"
#include "property.h"
#include "table_text.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes write_back(const DeltaTable& table) {
  Bytes bytes;
  const auto append = [&](const auto& value) {
    const auto* first = reinterpret_cast<const unsigned char*>(&value);
    bytes.insert(bytes.end(), first, first + sizeof value);
  };
  append(table.header);
  for (std::size_t row = 0; row < table.count(); ++row) {
    for (std::size_t column = 0; column < table.layout->columns.size(); ++column) {
      const Cell cell = table.cell(row, column);
      if (const auto* octets = std::get_if<Octets>(&cell)) {
        bytes.insert(bytes.end(), octets->bytes.begin(), octets->bytes.end());
      } else if (const auto* rate = std::get_if<double>(&cell)) {
        append(*rate);
      } else {
        append(std::get<std::uint32_t>(cell));
      }
    }
  }
  return bytes;
}

void check_table(const DeltaTable& table) {
  std::vector<std::size_t> all(table.count());
  std::iota(all.begin(), all.end(), std::size_t{0});
  for (std::size_t column = 0; column < table.layout->columns.size(); ++column) {
    auto rows = ordered_rows(table, {.sort_column = column});
    std::sort(rows.begin(), rows.end());
    demand(rows == all, "sorting keeps every row and adds none");
  }
  for (const NumberStyle numbers : {NumberStyle::exact, NumberStyle::si}) {
    const std::string text = table_text(table, "fuzz", {.numbers = numbers, .sort_column = {}});
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    demand(lines == (table.count() == 0 ? 1 : table.count() + 2), "one line per row");
    const auto plain = [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); };
    demand(std::all_of(text.begin(), text.end(), plain), "plain text");
  }
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  const std::span<const unsigned char> bytes(data, size);
  int accepted = 0;
  for (std::uint32_t type = 0; type <= kTypeSlots; ++type) {
    const DeltaResult result = parse_delta(bytes, type);
    if (const auto* fault = std::get_if<DeltaFault>(&result)) {
      demand(!fault_text(*fault, bytes, type).empty(), "every refusal has its reason");
      continue;
    }
    const DeltaTable& table = std::get<DeltaTable>(result);
    demand(++accepted == 1, "a file of one type only");
    demand(sizeof(FileHeader) + table.count() * table.layout->size == size,
           "rows explain the size");
    demand(std::ranges::equal(write_back(table), bytes), "written back, the same bytes");
    check_table(table);
  }
  return 0;
}
