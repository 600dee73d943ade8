#include "file_name.h"

#include <charconv>

#include "daemon/collection_types.h"
#include "files/file_format.h"

namespace tally::cgi {

std::optional<FileName> parse_file_name(std::string_view name) {
  const std::string_view stem = name.substr(0, name.find('_'));
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    const char* known = type_stem(type);
    if (known == nullptr || stem != known) continue;
    std::uint32_t index = 0;
    if (is_agent_type(type) && stem.size() < name.size()) {
      const char* digits = name.data() + stem.size() + 1;
      (void)std::from_chars(digits, name.data() + name.size(), index);
    }
    for (const FileKind kind : {FileKind::prev, FileKind::last, FileKind::delta}) {
      // Whatever else the name holds, it is one of ours only if we would write it so.
      const CollectionPath path = collection_path(type, index, kind);
      if (std::string_view(path.text).substr(sizeof kDataDirectory) == name) {
        const std::size_t begin = name.rfind('_') + 1;
        return FileName{type, index, name.substr(begin, name.rfind('.') - begin)};
      }
    }
  }
  return std::nullopt;
}

}  // namespace tally::cgi
