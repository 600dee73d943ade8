#include "naming.h"

#include "records/cell_text.h"
#include "records/collection_files.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostNames = 10000;

// How long a file that is being written is waited for; the page asks again with the next one.
constexpr std::chrono::milliseconds kPatience{500};

}  // namespace

bool NameList::add(const unsigned char* record) {
  for (std::size_t i = 0; i < layout_.key_columns; ++i) {
    if (names_.name_of(layout_, record, i).empty()) continue;
    Json& column = found_[layout_.columns[i].name];
    const auto [name, is_new] = column.emplace(cell_text(layout_, record, i, NumberStyle::exact),
                                               names_.label_of(layout_, record, i, false));
    if (is_new) ++count_;
  }
  return count_ < kMostNames;
}

Json list_names(const std::string& directory, const Collection& collection) {
  const OpenFiles files =
      open_files(directory, collection, FileKind::delta, Samples::none, kPatience);
  NameList names(*record_layout(collection.type));
  Records records = files.main.records();
  while (files.main.good()) {
    const unsigned char* record = records.next();
    if (record == nullptr || !names.add(record)) break;
  }
  return {{"names", names.take()}};
}

}  // namespace tally::cgi
