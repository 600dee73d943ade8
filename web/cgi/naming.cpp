#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "answers.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "records/cell_text.h"
#include "records/collection_files.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostNames = 10000;

// How long files that are being written are waited for; the page asks again with the next ones.
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

Json answer_to(const NamesRequest& request) {
  const auto end = Clock::now() + kPatience;
  Names names;
  names.refresh();
  Json all = Json::object();
  for (const Collection& collection : request.collections) {
    Json& found = all[fmt::format("{}/{}", type_stem(collection.type), collection.index)];
    found = Json::object();
    const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    const OpenFiles files = open_files(kDataDirectory, collection, FileKind::delta, Samples::none,
                                       std::max(patience, std::chrono::milliseconds{0}));
    if (!files.main.good()) continue;
    const RecordLayout& layout = *record_layout(collection.type);
    Records records = files.main.records();
    for (std::size_t count = 0; count < kMostNames;) {
      const unsigned char* record = records.next();
      if (record == nullptr) break;
      count += add_names(found, names, layout, record);
    }
  }
  return {{"names", std::move(all)}};
}

}  // namespace tally::cgi
