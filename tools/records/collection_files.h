// The files of one collection, opened so that they belong together.
//
// The daemon holds an exclusive flock while it writes a delta file, and readers are to take a
// shared one. Of its two writers one empties the file before it has the lock, so a copy that was
// made under the shared lock is taken only if the file did not change meanwhile. The lock is held
// for the copy and for two opens, no longer. Samples are not locked: they are taken when their
// times are those of the delta file.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "records/collection_name.h"
#include "records/file_bytes.h"
#include "records/record_columns.h"

namespace tally {

// FileStamp tells one state of a file from another.
struct FileStamp {
  ino_t inode;
  off_t size;
  std::time_t seconds;
  long nanoseconds;  // of the last modification

  bool operator==(const FileStamp&) const = default;
};

// stamp_of returns the present state of a file, or nothing when there is none.
std::optional<FileStamp> stamp_of(const std::string& path);

// What became of opening a file, in the order in which it is looked at.
enum class FileState {
  good,
  absent,        // there is no such file
  unreadable,    // cannot be opened or read, or is not a regular file
  writing,       // somebody writes it, and patience ran out
  empty,         // no bytes at all
  short_header,  // fewer than 16
  foreign_type,  // the header names another type
  foreign_size,  // the records are not a whole number of the type's records
  unfinished,    // whoever wrote it did not get to the end: see files/finished_file.h
};

// file_state_code returns the state as one word, for programs: "good", "being-written", ...
const char* file_state_code(FileState state);

// One file whose size, type and header are right, unless `state` says otherwise.
struct OpenFile {
  FileState state = FileState::absent;
  std::string remark;  // what is wrong, and what to do
  FileStamp stamp{};
  FileHeader header{};
  FileBytes bytes;
  const RecordLayout* layout = nullptr;

  bool good() const { return state == FileState::good; }
  std::uint64_t count() const { return (bytes.size() - sizeof(FileHeader)) / layout->size; }
  Records records() const { return {bytes, sizeof(FileHeader), layout->size}; }
};

// OpenFiles is what a reader asked for, and the samples that explain it.
struct OpenFiles {
  Collection collection{};
  FileKind kind{};
  OpenFile main;                 // of the kind asked for
  std::optional<OpenFile> last;  // good, and of the poll that wrote `main`; only for a delta file
  std::optional<OpenFile> prev;  // the sample before; for a delta file and for a last one
  std::string unmatched;         // why there are none
};

// Whether the samples are wanted as well.
enum class Samples { none, both };

// Lack is why a collection has no rates, and what to do.
struct Lack {
  std::string text;
  std::string advice;
};

// lack_of returns nothing where there is a delta file, and rows in the sample that it comes from.
std::optional<Lack> lack_of(const std::string& directory, const Collection& collection);

// Covered is the time between two samples that a delta file is about.
struct Covered {
  std::int64_t begin;
  std::int64_t end;
};

// covered_times reads the headers of all delta files of a directory.
std::vector<Covered> covered_times(const std::string& directory);

// present_collections lists the collections that have files in a directory, by type and index.
// Nothing when it cannot be read: `error` says why.
std::vector<Collection> present_collections(const std::string& directory, std::string& error);

// open_files waits for a file that is being written for as long as `patience` says; `on_wait`, if
// any, is called once when the wait begins.
OpenFiles open_files(const std::string& directory, const Collection& collection, FileKind kind,
                     Samples samples, std::chrono::milliseconds patience,
                     const std::function<void()>& on_wait = {});

// judge settles state, header and layout of bytes that were read. Pure.
void judge(OpenFile& file, std::uint32_t type, FileKind kind);

// match_samples takes the samples that belong to `main`, and says so when they do not. Pure.
void match_samples(OpenFiles& files, OpenFile last, OpenFile prev);

}  // namespace tally
