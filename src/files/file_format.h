// Names and common header of the collection files. The writer, the readers and the tools share it.
//
// A collection has up to three files in the data directory:
//   last   the newest sample           prev   the sample before it
//   delta  the per-second rates between the two; this is the file that the web pages read
//
// Every file is a 16-byte header followed by records of one fixed size, in the host's byte order
// (little-endian), without padding or trailer. Records are sorted by key in ascending order, but
// for those of etherstats and ifstats, which follow the daemon's list of rows.
//
//     0        4        8        12       16
//     +--------+--------+--------+--------+----------+----------+ - -
//     |interval| uptime | sample |  type  | record 0 | record 1 |
//     +--------+--------+--------+--------+----------+----------+ - -
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "daemon/base/paths.h"

namespace tally {

enum class FileKind { prev, last, delta };

// FileHeader stands at the start of every collection file.
struct FileHeader {
  std::int32_t interval;     // delta: seconds between the samples, may be negative; else 0
  std::uint32_t up_time;     // last, prev: the agent's up-time, 0 when unknown; delta: 0
  std::int32_t sample_time;  // seconds since the epoch, of the (last) sample; 0: not finished
  std::uint32_t type;        // collection type code
};
static_assert(sizeof(FileHeader) == 16);

// Mode of the files, under a umask of 0: the web server's user reads and locks them.
inline constexpr unsigned kFileMode = 0777;

// CollectionPath holds a path in place, so that polls and messages allocate nothing for it.
struct CollectionPath {
  char text[sizeof kDataDirectory + 64];
};

struct CollectionPaths {
  CollectionPath last;
  CollectionPath prev;
  CollectionPath delta;
};

// collection_path returns the path of one file: "DIR/host_3_delta.bin" for an agent collection,
// "DIR/ifstats_delta.bin" for a supervisor kind. The type must be legal.
CollectionPath collection_path(std::uint32_t type, std::uint32_t index, FileKind kind);

// collection_paths returns the paths of all three files of a legal type.
CollectionPaths collection_paths(std::uint32_t type, std::uint32_t index);

// file_kind_name returns what a kind is called in file names: "prev", "last" or "delta".
const char* file_kind_name(FileKind kind);

// collection_of_file is the inverse of collection_path for names without a directory. Nothing for
// any other name.
struct CollectionFile {
  std::uint32_t type;
  std::uint32_t index;  // 0 for the supervisor kinds
  FileKind kind;
};
std::optional<CollectionFile> collection_of_file(std::string_view name);

// remove_collection_files removes a collection's files, silently skipping those that do not exist.
// Etherstats has only a delta file. Logs an illegal type.
void remove_collection_files(std::uint32_t type, std::uint32_t index);

// set_sample_aside turns a collection's last file into its prev file, before a new sample is taken.
// A last file that a killed process left unfinished is passed over (logs): the sample before it, if
// any, already is the prev file.
//
// restore_sample undoes that after a failure, replacing whatever last file there is by then. Logs
// when it cannot.
enum class PreviousSample {
  none,   // there is no sample
  kept,   // the newest whole one is the prev file now
  stuck,  // it cannot be opened or renamed, and a new one would overwrite it
};
[[nodiscard]] PreviousSample set_sample_aside(const CollectionPaths& paths);
void restore_sample(const CollectionPaths& paths);

// delta_file_exists tells whether the delta file of a legal type can be opened for reading.
bool delta_file_exists(std::uint32_t type, std::uint32_t index);

// read_file_header reads the header from the start of a file. False when it is incomplete.
[[nodiscard]] bool read_file_header(int fd, FileHeader& header);

// seconds_between returns the interval between two samples. It wraps like the 32-bit field that
// stores it.
constexpr std::int32_t seconds_between(std::int32_t from, std::int32_t to) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) -
                                   static_cast<std::uint32_t>(from));
}

// file_exists tells whether a path can be opened for reading.
bool file_exists(const char* path);

}  // namespace tally
