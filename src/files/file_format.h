// Names and common header of the collection files. The writer, the readers and the tools share it.
//
// A collection has up to three files in the data directory:
//   last   the newest sample           prev   the sample before it
//   delta  the per-second rates between the two; this is the file that the web pages read
//
// Every file is a 16-byte header followed by records of one fixed size, in the host's byte order
// (little-endian), without padding or trailer. Records are sorted by key in ascending order.
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

// Mode of every file that the daemon makes; its umask is 0, because the web server's user reads
// and locks the files.
inline constexpr unsigned kFileMode = 0777;

// CollectionPath is a path in place: polls and messages allocate nothing for it.
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

// collection_of_file is the other direction of collection_path: it knows the names, without their
// directory, that are made there, and no others.
struct CollectionFile {
  std::uint32_t type;
  std::uint32_t index;  // 0 for the supervisor kinds
  FileKind kind;
};
std::optional<CollectionFile> collection_of_file(std::string_view name);

// remove_collection_files removes the files of a collection; those that do not exist are passed
// over in silence. Of etherstats only the delta file is a file. Logs an illegal type.
void remove_collection_files(std::uint32_t type, std::uint32_t index);

// set_sample_aside makes the last file of a collection its prev file, before a new sample is taken.
// A last file that a killed process left unfinished is passed over (logs): the sample before it is
// the prev file already, or there is none.
//
// restore_sample takes that back after a failure, in place of whatever is the last file by then.
// Logs when the sample cannot be put back.
enum class PreviousSample {
  none,   // there is no sample
  kept,   // the newest whole one is the prev file now
  stuck,  // it cannot be opened or renamed and was left where it is: no new one may be written
};
[[nodiscard]] PreviousSample set_sample_aside(const CollectionPaths& paths);
void restore_sample(const CollectionPaths& paths);

// delta_file_exists tells whether the delta file of a legal type can be opened for reading.
bool delta_file_exists(std::uint32_t type, std::uint32_t index);

// read_file_header reads the header from the start of a file. False when it is not all there.
[[nodiscard]] bool read_file_header(int fd, FileHeader& header);

// seconds_between returns the interval between two samples. It wraps as the 32-bit field that it is
// stored in does.
constexpr std::int32_t seconds_between(std::int32_t from, std::int32_t to) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) -
                                   static_cast<std::uint32_t>(from));
}

// file_exists tells whether a path can be opened for reading.
bool file_exists(const char* path);

}  // namespace tally
