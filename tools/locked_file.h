// Reads a file that the daemon rewrites in place, whole or not at all.
//
// The daemon holds an exclusive flock while it writes a delta file, and readers are to take a
// shared one. Of its two writers one empties the file before it has the lock, so bytes that were
// read under the shared lock are taken only if the file did not change meanwhile.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tally {

// FileStamp tells one state of a file from another.
struct FileStamp {
  ino_t inode;
  off_t size;
  std::time_t seconds;
  long nanoseconds;  // of the last modification

  bool operator==(const FileStamp&) const = default;
};

enum class ReadOutcome {
  done,
  absent,   // there is no such file
  writing,  // somebody writes it, and patience ran out
  failed,   // cannot be read, or is no regular file: see error
};

struct FileContent {
  ReadOutcome outcome;
  std::vector<unsigned char> bytes;
  FileStamp stamp;    // of the bytes
  std::string error;  // why it failed
};

// read_shared reads a file under a shared flock. Waits for the lock for as long as `patience` says
// (0: not at all); `on_wait`, if any, is called once when the wait begins.
FileContent read_shared(const std::string& path, std::chrono::milliseconds patience,
                        const std::function<void()>& on_wait = {});

// stamp_of returns the present state of a file, or nothing when there is none.
std::optional<FileStamp> stamp_of(const std::string& path);

}  // namespace tally
