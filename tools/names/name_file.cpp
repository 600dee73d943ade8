#include "names/name_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "daemon/base/retry.h"
#include "files/unique_fd.h"
#include "records/cell_text.h"

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

std::string read_whole(const std::string& path, std::size_t limit) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if (status.st_size < 0 || static_cast<std::size_t>(status.st_size) > limit) return {};
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t used = 0;
  while (used < bytes.size()) {
    const ssize_t got =
        retry_interrupted([&] { return read(fd.get(), bytes.data() + used, bytes.size() - used); });
    if (got <= 0) break;  // it was cut meanwhile
    used += static_cast<std::size_t>(got);
  }
  bytes.resize(used);
  return bytes;
}

std::vector<NameLine> read_name_file(const std::string& path) {
  const std::string bytes = read_whole(path, kLargestFile);
  std::vector<NameLine> lines;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
    NameLine line = words_of(std::string_view(bytes).substr(at, end - at));
    at = end + 1;
    const bool fits = std::ranges::all_of(
        line.words, [](const std::string& word) { return word.size() <= kLongestName; });
    if (fits && !line.words[1].empty()) lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace tally
