#include "files/delta_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "daemon/base/log.h"
#include "files/file_format.h"
#include "files/file_lock.h"
#include "files/finished_file.h"

namespace tally {
namespace {

// Failures log one text with a number, at debug level.
bool fail(int number) {
  log_debug("Error %d creating delta file.", number);
  return false;
}

// Steps a cache to its next record, refilling the buffer at its end. False when the fill failed;
// `count` is 0 at the end of the file.
bool advance(RecordCache& cache, std::uint32_t record_size) {
  cache.used += record_size;
  cache.position += 1;
  return cache.position < cache.count || filebuf_fill(cache, record_size) == 1;
}

struct DeltaMerge {
  const DeltaRoutines& routines;
  RecordCache& last;
  RecordCache& prev;
  RecordCache& delta;
  const FileHeader& header;

  bool run() {
    if (!filebuf_fill(last, routines.record_size)) return fail(15);
    if (last.count == 0) return finish();
    if (!filebuf_fill(prev, routines.record_size)) return fail(16);
    while (last.count != 0) {
      int order = -1;  // once prev has ended, every last row is new
      while (prev.count != 0 && (order = routines.compare(last, prev)) > 0) {
        if (!advance(prev, routines.record_size)) return fail(19);
      }
      const bool is_new = order != 0;
      if (!put(is_new ? nullptr : &prev)) return fail(is_new ? 17 : 18);
      if (!is_new && !advance(prev, routines.record_size)) return fail(19);
      if (!advance(last, routines.record_size)) return fail(20);
    }
    return finish();
  }

  bool put(const RecordCache* before) {
    static unsigned char out[kFilebufSize];
    return routines.make_delta(last, before, out, header.interval) <= 0 ||
           filebuf_put(delta, out, routines.record_size) == 1;
  }

  bool finish() { return finish_file(delta, header.sample_time) == 1 || fail(21); }
};

bool write_delta(const char* last_path, const char* prev_path, const char* delta_path,
                 const DeltaRoutines& routines, RecordCache& last) {
  const UniqueFd last_fd = open_file(last_path, O_RDONLY);
  if (!last_fd) return fail(1);
  const UniqueFd prev_fd = open_file(prev_path, O_RDONLY);
  if (!prev_fd) return fail(2);
  const UniqueFd delta_fd = open_file(delta_path, O_WRONLY | O_CREAT);
  if (!delta_fd) return fail(3);
  const FileLock lock(delta_fd.get());
  if (!lock.locked()) return fail(24);
  if (ftruncate(delta_fd.get(), 0) != 0) return fail(25);
  RecordCache prev;
  RecordCache delta;
  filebuf_init(last, last_fd.get());
  filebuf_init(prev, prev_fd.get());
  filebuf_init(delta, delta_fd.get());

  FileHeader prev_header;
  FileHeader last_header;
  if (!read_file_header(prev_fd.get(), prev_header)) {
    log_debug("Unable to read file header from prev file!");
    return true;
  }
  if (!read_file_header(last_fd.get(), last_header)) {
    log_debug("Unable to read file header from last file!");
    return true;
  }
  const std::int32_t interval = seconds_between(prev_header.sample_time, last_header.sample_time);
  const FileHeader delta_header{interval, 0, last_header.sample_time, last_header.type};
  if (!begin_file(delta, delta_header)) return fail(12);
  return DeltaMerge{routines, last, prev, delta, delta_header}.run();
}

}  // namespace

int create_delta_file(const char* last_path, const char* prev_path, const char* delta_path,
                      const DeltaRoutines& routines, RecordCache& last) {
  if (write_delta(last_path, prev_path, delta_path, routines, last)) return 1;
  std::remove(delta_path);  // an older delta file must not pass for this one
  return 0;
}

}  // namespace tally
