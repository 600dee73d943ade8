#include "supervisor/sampled_kind.h"

#include <fcntl.h>

#include "daemon/base/clock.h"
#include "daemon/base/log.h"
#include "files/file_format.h"
#include "files/file_lock.h"
#include "files/finished_file.h"

namespace tally {
namespace {

bool fail(const char* text) {
  log_debug("%s", text);
  return false;
}

bool write_sample(const SampledKind& kind, const char* last_path, RecordCache& cache) {
  const UniqueFd file = open_file(last_path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file) return false;  // the system has no text for this
  filebuf_init(cache, file.get());
  const FileHeader header{0, 0, now_seconds(), kind.type};
  if (!begin_file(cache, header)) return fail(kind.header_failed);
  if (!kind.upload(cache)) return fail(kind.upload_failed);
  return finish_file(cache, header.sample_time) == 1 || fail(kind.flush_failed);
}

}  // namespace

int poll_sampled_kind(const SampledKind& kind) {
  const CollectionPaths paths = collection_paths(kind.type, 0);
  const PreviousSample previous = set_sample_aside(paths);
  if (previous == PreviousSample::stuck) {
    log_warning("Unable to set %s aside for a new sample.", paths.last.text);
    return 0;
  }
  RecordCache cache;
  if (!write_sample(kind, paths.last.text, cache)) {
    restore_sample(paths);
    return 0;
  }
  if (previous == PreviousSample::none && !file_exists(paths.prev.text)) return 1;
  return create_delta_file(paths.last.text, paths.prev.text, paths.delta.text, kind.routines,
                           cache);
}

}  // namespace tally
