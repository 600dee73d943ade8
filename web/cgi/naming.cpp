#include "naming.h"

#include <nlohmann/json.hpp>

#include "records/cell_text.h"
#include "records/collection_files.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostNames = 10000;

// How long a file that is being written is waited for; the page asks again with the next one.
constexpr std::chrono::milliseconds kPatience{500};

}  // namespace

std::size_t add_names(Json& found, const Names& names, const RecordLayout& layout,
                      const unsigned char* record) {
  std::size_t added = 0;
  for (std::size_t i = 0; i < layout.key_columns; ++i) {
    if (names.name_of(layout, record, i).empty()) continue;
    Json& column = found[layout.columns[i].name];
    const auto [name, is_new] = column.emplace(cell_text(layout, record, i, NumberStyle::exact),
                                               names.label_of(layout, record, i, false));
    if (is_new) ++added;
  }
  return added;
}

Json list_names(const std::string& directory, const Collection& collection) {
  Json found = Json::object();
  const OpenFiles files =
      open_files(directory, collection, FileKind::delta, Samples::none, kPatience);
  if (!files.main.good()) return {{"names", std::move(found)}};
  Names names;
  names.refresh();
  std::size_t count = 0;
  const RecordLayout& layout = *record_layout(collection.type);
  Records records = files.main.records();
  while (count < kMostNames) {
    const unsigned char* record = records.next();
    if (record == nullptr) break;
    count += add_names(found, names, layout, record);
  }
  return {{"names", std::move(found)}};
}

}  // namespace tally::cgi
