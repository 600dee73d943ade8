#include "names/name_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "files/unique_fd.h"
#include "records/cell_text.h"
#include "records/file_bytes.h"

namespace tally {
namespace {

constexpr std::size_t kLargestFile = 4 << 20;
constexpr std::string_view kBlanks = " \t\r\v\f";

// words_of takes the first words of a line.
NameLine words_of(std::string_view line) {
  NameLine found;
  line = line.substr(0, line.find('#'));
  for (std::string& word : found.words) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const std::string_view bytes = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(bytes.size());
    if (!bytes.empty()) word = printable(bytes);
  }
  return found;
}

}  // namespace

void for_each_line(const std::string& path, std::size_t limit,
                   const std::function<void(std::string_view)>& take) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (status.st_size < 0 || static_cast<std::size_t>(status.st_size) > limit) return;
  std::vector<unsigned char> bytes(static_cast<std::size_t>(status.st_size));
  bytes.resize(read_at(fd.get(), 0, bytes));  // it may be cut meanwhile
  for (auto at = bytes.begin(); at != bytes.end();) {
    const auto end = std::find(at, bytes.end(), '\n');
    take({reinterpret_cast<const char*>(&*at), static_cast<std::size_t>(end - at)});
    at = end == bytes.end() ? end : end + 1;
  }
}

std::vector<NameLine> read_name_file(const std::string& path) {
  std::vector<NameLine> lines;
  for_each_line(path, kLargestFile, [&](std::string_view text) {
    NameLine line = words_of(text);
    const bool fits = std::ranges::all_of(
        line.words, [](const std::string& word) { return word.size() <= kLongestName; });
    if (fits && !line.words[1].empty()) lines.push_back(std::move(line));
  });
  return lines;
}

}  // namespace tally
