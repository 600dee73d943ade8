#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "console/output.h"
#include "files/unique_fd.h"
#include "history/history.h"
#include "views/row_export.h"

namespace tally {
namespace {

std::string file_of(const std::string& directory, const Collection& collection) {
  return history_path(directory, collection) + ".csv";
}

// has_names tells whether the first line of a file has columns of names, which come last: a file
// that was begun without them goes on without.
bool has_names(int fd) {
  char start[1024];  // more than the longest first line
  const ssize_t got = pread(fd, start, sizeof start, 0);
  const std::string_view text(start, got > 0 ? static_cast<std::size_t>(got) : 0);
  return text.substr(0, text.find('\n')).ends_with("_name");
}

class CsvHistory final : public History {
 public:
  explicit CsvHistory(std::string directory) : directory_(std::move(directory)) {}

  std::int64_t last_end(const Collection& collection) override;
  std::string keep(const Interval& interval) override;

 private:
  std::string directory_;
  Names names_;
  std::map<std::string, std::int64_t> ends_;  // by path
};

// last_end finds the time that the last line begins with.
std::int64_t CsvHistory::last_end(const Collection& collection) {
  constexpr off_t kTail = 4096;  // more than the longest line
  const std::string path = file_of(directory_, collection);
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  std::string tail(kTail, '\0');
  const off_t from = std::max<off_t>(status.st_size - kTail, 0);
  const ssize_t got = pread(fd.get(), tail.data(), tail.size(), from);
  tail.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  if (!tail.empty() && tail.back() == '\n') tail.pop_back();
  const std::size_t line = tail.rfind('\n');
  std::int64_t end = 0;
  if (line != std::string::npos) {
    std::from_chars(tail.data() + line + 1, tail.data() + tail.size(), end);
  }
  ends_[path] = end;
  return end;
}

std::string CsvHistory::keep(const Interval& interval) {
  const std::string path = file_of(directory_, interval.collection);
  const UniqueFd fd(
      open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW, 0644));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0) {
    return fmt::format("{}: {}", path, std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) return fmt::format("{}: not a regular file", path);

  Output output(fd.get());
  const bool named = status.st_size == 0 || has_names(fd.get());
  names_.refresh();
  if (status.st_size == 0) output << "time,interval," << csv_heading(interval.layout, true);
  const std::int64_t begin = interval.end - interval.seconds;
  std::int64_t& end = ends_[path];
  if (end != 0 && end < begin) {
    const auto commas = [](const std::string& text) { return std::ranges::count(text, ','); };
    const auto names = named ? commas(csv_name_headings(interval.layout)) : 0;
    output << fmt::format("{},{},{:,>{}}gap{:,>{}}\n", begin, begin - end, "",
                          commas(csv_heading(interval.layout, false)), "", names);
  }
  const std::string front = fmt::format("{},{},", interval.end, interval.seconds);
  for (const Row& row : interval.rows) {
    output << front;
    append_csv_row(output.text(), interval.layout, row.record, row.notes,
                   named ? &names_ : nullptr);
  }
  if (!output.flush()) {  // all of it or nothing
    (void)ftruncate(fd.get(), status.st_size);
    return fmt::format("{}: {}; this interval is missing there", path,
                       std::strerror(output.error()));
  }
  end = interval.end;
  return {};
}

}  // namespace

std::unique_ptr<History> make_csv_history(const std::string& directory) {
  return std::make_unique<CsvHistory>(directory);
}

}  // namespace tally
