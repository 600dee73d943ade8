#include "records/collection_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>
#include <tuple>

#include "daemon/base/collection_types.h"

namespace tally {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRetryPause{20};

FileStamp make_stamp(const struct stat& state) {
  return {state.st_ino, state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
}

OpenFile refused(FileState state, std::string remark) {
  OpenFile file;
  file.state = state;
  file.remark = std::move(remark);
  return file;
}

OpenFile unreadable(int error) {
  std::string remark = fmt::format("it cannot be read: {}", std::strerror(error));
  if (error == EACCES) remark += "; become the web server's user or root";
  return refused(FileState::unreadable, remark);
}

// open_regular opens a file, not blocking in case a FIFO lies where the file should be.
OpenFile open_regular(const std::string& path, UniqueFd& fd, struct stat& state) {
  fd.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) {
    if (errno == ENOENT) return refused(FileState::absent, "no such file yet");
    return unreadable(errno);
  }
  if (fstat(fd.get(), &state) != 0) return unreadable(errno);
  if (!S_ISREG(state.st_mode)) {
    return refused(FileState::unreadable, "it is not a regular file; remove it");
  }
  return refused(FileState::good, {});
}

OpenFile being_written() {
  return refused(FileState::writing, "the daemon is writing it; try again, or wait with --wait");
}

// open_sample opens a sample without a lock, which the daemon does not take for it either.
OpenFile open_sample(const std::string& directory, const Collection& collection, FileKind kind) {
  UniqueFd fd;
  struct stat state {};
  OpenFile file = open_regular(file_path(directory, collection, kind), fd, state);
  if (!file.good()) return file;
  file.stamp = make_stamp(state);
  file.bytes = FileBytes(std::move(fd), static_cast<std::uint64_t>(state.st_size));
  judge(file, collection.type, kind);
  return file;
}

// open_delta makes one attempt; it ends as `writing` when another may succeed. While the lock is
// held it opens the samples, too: a poll of the agent's tables cannot replace them meanwhile.
OpenFile open_delta(const std::string& directory, const Collection& collection, OpenFile* last,
                    OpenFile* prev) {
  UniqueFd fd;
  struct stat before {};
  OpenFile file = open_regular(file_path(directory, collection, FileKind::delta), fd, before);
  if (!file.good()) return file;
  if (flock(fd.get(), LOCK_SH | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK || errno == EINTR) return being_written();
    return unreadable(errno);
  }
  if (fstat(fd.get(), &before) != 0) return unreadable(errno);
  const int error = copy_of(fd.get(), static_cast<std::uint64_t>(before.st_size), file.bytes);
  if (error != 0 && error != ENODATA) return unreadable(error);
  if (last != nullptr) {
    *last = open_sample(directory, collection, FileKind::last);
    *prev = open_sample(directory, collection, FileKind::prev);
  }
  struct stat after {};
  if (fstat(fd.get(), &after) != 0) return unreadable(errno);
  file.stamp = make_stamp(after);
  const bool changed = error != 0 || make_stamp(before) != file.stamp ||
                       file.bytes.size() != static_cast<std::uint64_t>(after.st_size);
  if (changed) return being_written();
  judge(file, collection.type, FileKind::delta);
  return file;
}

// try_open makes one attempt at what was asked for.
OpenFiles try_open(const std::string& directory, const Collection& collection, FileKind kind,
                   Samples samples) {
  OpenFiles files;
  files.collection = collection;
  files.kind = kind;
  OpenFile last;
  OpenFile prev;
  const bool both = samples == Samples::both;
  if (kind == FileKind::delta) {
    files.main = open_delta(directory, collection, both ? &last : nullptr, both ? &prev : nullptr);
  } else {
    // Whoever polls an agent's table has the delta file locked.
    const OpenFile delta = open_delta(directory, collection, nullptr, nullptr);
    files.main = delta.state == FileState::writing ? being_written()
                                                   : open_sample(directory, collection, kind);
    if (both && kind == FileKind::last) prev = open_sample(directory, collection, FileKind::prev);
  }
  if (both && files.main.good()) match_samples(files, std::move(last), std::move(prev));
  return files;
}

}  // namespace

std::optional<FileStamp> stamp_of(const std::string& path) {
  struct stat state {};
  if (stat(path.c_str(), &state) != 0) return std::nullopt;
  return make_stamp(state);
}

const char* file_state_code(FileState state) {
  constexpr const char* kCodes[] = {"good",          "absent",       "unreadable",
                                    "being-written", "empty",        "short-header",
                                    "foreign-type",  "foreign-size", "unfinished"};
  return kCodes[static_cast<std::size_t>(state)];
}

void judge(OpenFile& file, std::uint32_t type, FileKind kind) {
  file.layout = record_layout(type, kind);
  const std::uint64_t size = file.bytes.size();
  const auto is = [&](FileState state, std::string remark) {
    file.state = state;
    file.remark = std::move(remark);
  };
  if (size == 0) {
    return is(FileState::empty,
              "it is empty: no poll has filled it; see 'tallyctl check' when it stays so");
  }
  unsigned char start[sizeof(FileHeader)];
  if (file.bytes.read(0, start) < sizeof start) {
    return is(FileState::short_header,
              fmt::format("{} octets are too short for the header of 16; create the collection "
                          "again",
                          size));
  }
  std::memcpy(&file.header, start, sizeof start);
  if (file.header.type != type || file.layout == nullptr) {
    return is(FileState::foreign_type,
              fmt::format("its header names collection type {}, not {}; something else wrote it",
                          file.header.type, type));
  }
  if ((size - sizeof(FileHeader)) % file.layout->size != 0) {
    return is(FileState::foreign_size,
              fmt::format("its {} octets are not 16 + n x {}: it is cut, or half written; the next "
                          "poll makes it anew",
                          size, file.layout->size));
  }
  if (file.header.sample_time == 0) {
    return is(FileState::unfinished,
              "it was never finished: a full disk or the daemon's end broke it off; the next poll "
              "makes it anew");
  }
  is(FileState::good, {});
}

void match_samples(OpenFiles& files, OpenFile last, OpenFile prev) {
  const FileHeader& main = files.main.header;
  if (files.kind == FileKind::last) {
    if (prev.good()) {
      files.prev = std::move(prev);
    } else {
      files.unmatched = "there is no sample before this one";
    }
    return;
  }
  if (files.kind != FileKind::delta) return;
  if (record_layout(files.collection.type, FileKind::last) == nullptr) {
    files.unmatched = "the daemon keeps the samples of this kind in memory";
  } else if (!last.good() || !prev.good()) {
    const OpenFile& bad = last.good() ? prev : last;
    files.unmatched = fmt::format("the {} file: {}", last.good() ? "prev" : "last", bad.remark);
  } else if (last.header.sample_time != main.sample_time ||
             seconds_between(prev.header.sample_time, last.header.sample_time) != main.interval) {
    files.unmatched = "the samples belong to another poll than the delta file";
  } else {
    files.last = std::move(last);
    files.prev = std::move(prev);
  }
}

std::vector<Collection> present_collections(const std::string& directory, std::string& error) {
  std::vector<Collection> collections;
  std::error_code code;
  std::filesystem::directory_iterator entry(directory, code);
  for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code)) {
    const auto file = collection_of_file(entry->path().filename().native());
    if (file) collections.push_back({file->type, file->index});
  }
  if (code) error = code.message();
  const auto key = [](const Collection& each) { return std::tuple(each.type, each.index); };
  std::sort(collections.begin(), collections.end(),
            [&](const auto& left, const auto& right) { return key(left) < key(right); });
  collections.erase(std::unique(collections.begin(), collections.end()), collections.end());
  return collections;
}

std::optional<Lack> lack_of(const std::string& directory, const Collection& collection) {
  const std::string name = title(collection);
  const bool delta = stamp_of(file_path(directory, collection, FileKind::delta)).has_value();
  if (!is_agent_type(collection.type)) {
    if (delta) return std::nullopt;
    return Lack{
        "there is no delta file yet",
        fmt::format("'tallyctl view {}' has it polled every interval; 'tallyctl check' says "
                    "whether it is enabled",
                    name)};
  }
  const OpenFile last = open_sample(directory, collection, FileKind::last);
  if (last.good() && last.count() == 0) {
    return Lack{"the agent has no rows for it",
                fmt::format("does the agent have {} control row {}? minitapd has only index 1",
                            type_stem(collection.type), collection.index)};
  }
  if (delta) return std::nullopt;
  if (last.good()) {
    return Lack{"there is a sample but no delta file yet",
                fmt::format("'tallyctl view {}', or wait for the second poll: up to an hour where "
                            "nobody looks",
                            name)};
  }
  return Lack{"it has no files yet", fmt::format("'tallyctl create {}' starts it", name)};
}

std::vector<Covered> covered_times(const std::string& directory) {
  std::vector<Covered> times;
  std::string error;
  for (const Collection& collection : present_collections(directory, error)) {
    UniqueFd fd;
    struct stat state {};
    FileHeader header{};
    if (!open_regular(file_path(directory, collection, FileKind::delta), fd, state).good() ||
        pread(fd.get(), &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header) ||
        header.type != collection.type || header.sample_time == 0 || header.interval <= 0) {
      continue;
    }
    times.push_back({std::int64_t{header.sample_time} - header.interval, header.sample_time});
  }
  return times;
}

OpenFiles open_files(const std::string& directory, const Collection& collection, FileKind kind,
                     Samples samples, std::chrono::milliseconds patience,
                     const std::function<void()>& on_wait) {
  const auto deadline = Clock::now() + patience;
  bool waited = false;
  bool looked_again = false;
  for (;;) {
    OpenFiles files = try_open(directory, collection, kind, samples);
    if (files.main.state == FileState::empty && !looked_again) {
      // Perhaps it was emptied and is not locked yet: that lasts no longer than two system calls.
      looked_again = true;
      std::this_thread::sleep_for(kRetryPause);
      continue;
    }
    if (files.main.state != FileState::writing || Clock::now() >= deadline) return files;
    if (!waited && on_wait) on_wait();
    waited = true;
    std::this_thread::sleep_for(kRetryPause);
  }
}

}  // namespace tally
