#include "locked_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "files/unique_fd.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRetryPause{20};

FileStamp make_stamp(const struct stat& state) {
  return {state.st_ino, state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
}

FileContent failure(int error) {
  return {ReadOutcome::failed, {}, {}, std::strerror(error)};
}

// read_all appends the rest of a file. Returns 0 or an errno value.
int read_all(int fd, std::vector<unsigned char>& bytes) {
  constexpr std::size_t kBlock = 65536;
  std::size_t used = bytes.size();
  for (;;) {
    bytes.resize(used + kBlock);
    const ssize_t got = read(fd, bytes.data() + used, kBlock);
    if (got < 0 && errno == EINTR) continue;
    const int error = got < 0 ? errno : 0;
    used += got > 0 ? static_cast<std::size_t>(got) : 0;
    bytes.resize(used);
    if (got <= 0) return error;
  }
}

// try_read makes one attempt; it ends as `writing` when another may succeed.
FileContent try_read(const std::string& path) {
  // Not blocking, in case a FIFO lies where the file should be.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) {
    if (errno == ENOENT) return {ReadOutcome::absent, {}, {}, {}};
    return failure(errno);
  }
  struct stat before {};
  if (fstat(file.get(), &before) != 0) return failure(errno);
  if (!S_ISREG(before.st_mode)) return {ReadOutcome::failed, {}, {}, "not a regular file"};
  if (flock(file.get(), LOCK_SH | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK || errno == EINTR) return {ReadOutcome::writing, {}, {}, {}};
    return failure(errno);
  }
  FileContent content{ReadOutcome::done, {}, {}, {}};
  if (fstat(file.get(), &before) != 0) return failure(errno);
  if (const int error = read_all(file.get(), content.bytes); error != 0) return failure(error);
  struct stat after {};
  if (fstat(file.get(), &after) != 0) return failure(errno);
  content.stamp = make_stamp(after);
  const bool changed = make_stamp(before) != content.stamp ||
                       content.bytes.size() != static_cast<std::size_t>(after.st_size);
  if (changed) content.outcome = ReadOutcome::writing;
  return content;
}

}  // namespace

FileContent read_shared(const std::string& path, std::chrono::milliseconds patience,
                        const std::function<void()>& on_wait) {
  const auto deadline = Clock::now() + patience;
  bool waited = false;
  bool looked_again = false;
  for (;;) {
    FileContent content = try_read(path);
    if (content.outcome == ReadOutcome::done && content.bytes.empty() && !looked_again) {
      // Emptied and not yet locked, perhaps: that lasts no longer than two system calls.
      looked_again = true;
      std::this_thread::sleep_for(kRetryPause);
      continue;
    }
    if (content.outcome != ReadOutcome::writing || Clock::now() >= deadline) return content;
    if (!waited && on_wait) on_wait();
    waited = true;
    std::this_thread::sleep_for(kRetryPause);
  }
}

std::optional<FileStamp> stamp_of(const std::string& path) {
  struct stat state {};
  if (stat(path.c_str(), &state) != 0) return std::nullopt;
  return make_stamp(state);
}

}  // namespace tally
