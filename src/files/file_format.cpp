#include "files/file_format.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "daemon/collection_types.h"
#include "daemon/log.h"
#include "daemon/paths.h"
#include "files/unique_fd.h"

namespace tally {
namespace {

constexpr char kExtension[] = ".bin";

const char* kind_name(FileKind kind) {
  switch (kind) {
    case FileKind::prev:
      return "prev";
    case FileKind::last:
      return "last";
    case FileKind::delta:
      return "delta";
  }
  return "";
}

}  // namespace

CollectionPath collection_path(std::uint32_t type, std::uint32_t index, FileKind kind) {
  CollectionPath path;
  if (is_supervisor_type(type)) {
    std::snprintf(path.text, sizeof path.text, "%s/%s_%s%s", kDataDirectory, type_stem(type),
                  kind_name(kind), kExtension);
  } else {
    std::snprintf(path.text, sizeof path.text, "%s/%s_%u_%s%s", kDataDirectory, type_stem(type),
                  index, kind_name(kind), kExtension);
  }
  return path;
}

CollectionPaths collection_paths(std::uint32_t type, std::uint32_t index) {
  return {collection_path(type, index, FileKind::last),
          collection_path(type, index, FileKind::prev),
          collection_path(type, index, FileKind::delta)};
}

void remove_collection_files(std::uint32_t type, std::uint32_t index) {
  if (!is_agent_type(type) && !is_supervisor_type(type)) {
    log_debug("Attempt to remove data for invalid collection type");
    return;
  }
  std::remove(collection_path(type, index, FileKind::delta).text);
  if (type == kEtherStats) return;  // keeps its samples in memory
  std::remove(collection_path(type, index, FileKind::last).text);
  std::remove(collection_path(type, index, FileKind::prev).text);
}

// For want of descriptors or rights a sample may be there and out of reach.
PreviousSample set_sample_aside(const CollectionPaths& paths) {
  if (access(paths.last.text, F_OK) != 0 && errno == ENOENT) return PreviousSample::none;
  const bool moved =
      file_exists(paths.last.text) && std::rename(paths.last.text, paths.prev.text) == 0;
  return moved ? PreviousSample::kept : PreviousSample::stuck;
}

void restore_sample(const CollectionPaths& paths) {
  std::remove(paths.last.text);
  std::rename(paths.prev.text, paths.last.text);
}

bool delta_file_exists(std::uint32_t type, std::uint32_t index) {
  return file_exists(collection_path(type, index, FileKind::delta).text);
}

bool read_file_header(int fd, FileHeader& header) {
  ssize_t got = 0;
  do {
    got = read(fd, &header, sizeof header);
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(sizeof header);
}

bool file_exists(const char* path) {
  const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  return file.get() >= 1;  // descriptor 0 counts as absent: kept
}

}  // namespace tally
