#include "files/file_format.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/base/retry.h"
#include "files/file_lock.h"

namespace tally {

const char* file_kind_name(FileKind kind) {
  constexpr const char* kNames[] = {"prev", "last", "delta"};
  return kNames[static_cast<int>(kind)];
}

CollectionPath collection_path(std::uint32_t type, std::uint32_t index, FileKind kind) {
  CollectionPath path;
  if (is_supervisor_type(type)) {
    std::snprintf(path.text, sizeof path.text, "%s/%s_%s.bin", kDataDirectory, type_stem(type),
                  file_kind_name(kind));
  } else {
    std::snprintf(path.text, sizeof path.text, "%s/%s_%u_%s.bin", kDataDirectory, type_stem(type),
                  index, file_kind_name(kind));
  }
  return path;
}

CollectionPaths collection_paths(std::uint32_t type, std::uint32_t index) {
  return {collection_path(type, index, FileKind::last),
          collection_path(type, index, FileKind::prev),
          collection_path(type, index, FileKind::delta)};
}

std::optional<CollectionFile> collection_of_file(std::string_view name) {
  const std::string_view stem = name.substr(0, name.find('_'));
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    const char* const known = type_stem(type);
    if (!known || stem != known) continue;
    std::uint32_t index = 0;
    if (is_agent_type(type) && stem.size() < name.size()) {
      (void)std::from_chars(name.data() + stem.size() + 1, name.data() + name.size(), index);
    }
    for (const FileKind kind : {FileKind::prev, FileKind::last, FileKind::delta}) {
      // The name is ours only if we would write it exactly like this.
      const CollectionPath path = collection_path(type, index, kind);
      if (std::string_view(path.text).substr(sizeof kDataDirectory) == name) {
        return CollectionFile{type, index, kind};
      }
    }
  }
  return std::nullopt;
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

// For lack of descriptors or rights, a sample may exist but be out of reach.
PreviousSample set_sample_aside(const CollectionPaths& paths) {
  if (access(paths.last.text, F_OK) != 0 && errno == ENOENT) return PreviousSample::none;
  {
    const UniqueFd last = open_file(paths.last.text, O_RDONLY);
    if (last.get() < 1) return PreviousSample::stuck;
    FileHeader header{};
    const ssize_t got = retry_interrupted([&] { return read(last.get(), &header, sizeof header); });
    if (got == 0 || (got == sizeof header && header.sample_time == 0)) {
      log_debug("%s was never finished; a sample before it is used in its place.", paths.last.text);
      return file_exists(paths.prev.text) ? PreviousSample::kept : PreviousSample::none;
    }
  }
  return std::rename(paths.last.text, paths.prev.text) == 0 ? PreviousSample::kept
                                                            : PreviousSample::stuck;
}

void restore_sample(const CollectionPaths& paths) {
  std::remove(paths.last.text);
  if (std::rename(paths.prev.text, paths.last.text) != 0 && errno != ENOENT) {
    log_warning("Unable to put the sample %s back: %s", paths.prev.text, std::strerror(errno));
  }
}

bool delta_file_exists(std::uint32_t type, std::uint32_t index) {
  return file_exists(collection_path(type, index, FileKind::delta).text);
}

bool read_file_header(int fd, FileHeader& header) {
  const ssize_t got = retry_interrupted([&] { return read(fd, &header, sizeof header); });
  return got == static_cast<ssize_t>(sizeof header);
}

bool file_exists(const char* path) {
  return open_file(path, O_RDONLY).get() >= 1;  // descriptor 0 counts as absent: kept
}

}  // namespace tally
