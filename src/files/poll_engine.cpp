#include "files/poll_engine.h"

#include <fcntl.h>

#include <new>

#include "daemon/base/clock.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"
#include "files/file_lock.h"
#include "files/finished_file.h"

namespace tally {
namespace {

// One pass over the previous sample and the agent's rows, writing last and delta.
struct Merge {
  const CollectionOps& ops;
  RecordCache& prev;
  RecordCache& last;
  RecordCache& delta;
  std::uint32_t interval;
  std::int32_t sample_time;
  unsigned char spare[kMaxRecordSize] = {};

  // run merges everything and finishes both files. False when a put or a flush failed (logs), or
  // when the agent's rows were cut short because the process is about to end.
  bool run(RowIterator& rows) {
    const unsigned char* before = filebuf_getnext(prev, ops.record_size);
    const unsigned char* now = ops.rpc_getnext(rows);
    while (before || now) {
      if (!now && stopping()) return false;
      const int order = !now ? -1 : !before ? 1 : ops.compare(before, now);
      if (order < 0) {
        if (!carry_forward(before, !now)) return false;
        before = filebuf_getnext(prev, ops.record_size);
      } else if (order > 0) {
        if (!add_new(now, !before)) return false;
        now = ops.rpc_getnext(rows);
      } else {
        if (!update(before, now)) return false;
        before = filebuf_getnext(prev, ops.record_size);
        now = ops.rpc_getnext(rows);
      }
    }
    return !stopping() && finish();
  }

  bool put(RecordCache& cache, const unsigned char* record) {
    return filebuf_put(cache, record, ops.record_size) == 1;
  }

  // Rates are computed in place in the delta cache, if they fit there.
  unsigned char* rates_room() {
    unsigned char* room = filebuf_room(delta, ops.record_size);
    return room ? room : spare;
  }
  bool put_rates(const unsigned char* rates) {
    if (rates == spare) return put(delta, spare);
    filebuf_commit(delta, ops.record_size);
    return true;
  }

  // The agent did not return this row: it keeps its old counters and gets no rate.
  bool carry_forward(const unsigned char* before, bool agent_is_done) {
    if (put(last, before)) return true;
    log_warning("%s", agent_is_done ? "poll_coll_delta: Error writing last record 1."
                                    : "poll_coll_delta: Error writing last record 3.");
    return false;
  }

  // A row without a previous sample. The two cases log at different levels: kept.
  bool add_new(const unsigned char* now, bool prev_is_done) {
    if (!put(last, now)) {
      if (prev_is_done) {
        log_warning("poll_coll_delta: Error writing last record 2.");
      } else {
        log_debug("poll_coll_delta: Error writing last record 5.");
      }
      return false;
    }
    unsigned char* rates = rates_room();
    if (!ops.calc_rate || !ops.calc_rate(now, rates, interval)) {
      log_warning("poll_coll_delta: Error calculating rates.");
      return true;
    }
    if (put_rates(rates)) return true;
    if (prev_is_done) {
      log_warning("poll_coll_delta: Error writing delta record 1.");
    } else {
      log_debug("poll_coll_delta: Error writing delta record 3.");
    }
    return false;
  }

  bool update(const unsigned char* before, const unsigned char* now) {
    unsigned char* rates = rates_room();
    const int changed = ops.calc_delta(before, now, rates, interval);
    if (!put(last, now)) {
      log_warning("poll_coll_delta: Error writing last record 4.");
      return false;
    }
    if (changed == 1 && !put_rates(rates)) {
      log_warning("poll_coll_delta: Error writing delta record 2.");
      return false;
    }
    return true;
  }

  bool finish() {
    if (!finish_file(last, sample_time)) {
      log_debug("poll_coll_delta: Error flushing last file.");
      return false;
    }
    if (!finish_file(delta, sample_time)) {
      log_debug("poll_coll_delta: Error flushing delta file.");
      return false;
    }
    return true;
  }
};

// Takes the first sample: a header and the agent's rows, without a delta file.
bool upload_first_sample(Agent& agent, const CollectionRecord& collection, const char* last_path) {
  const auto upload = agent.ops(collection.type).upload;
  if (!upload) {
    log_debug("poll_tapd_collection: Error uploading collection.");
    return false;
  }
  const UniqueFd last = open_file(last_path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!last) return false;
  RecordCache cache;
  filebuf_init(cache, last.get());
  const FileHeader header{0, agent.up_time(), now_seconds(), collection.type};
  if (!begin_file(cache, header)) {
    log_debug("poll_tapd_collection: Error writing header.");
    return false;
  }
  if (!upload(agent.client(), cache, collection.index, collection)) {
    log_debug("poll_tapd_collection: Error uploading collection.");
    return false;
  }
  if (stopping()) return false;  // the rows may have been cut short
  if (!finish_file(cache, header.sample_time)) {
    log_debug("poll_tapd_collection: Error flusing buffer.");
    return false;
  }
  return true;
}

}  // namespace

int poll_coll_delta(Agent& agent, const CollectionRecord& collection, const char* last_path,
                    const char* prev_path, const char* delta_path) {
  const CollectionOps& ops = agent.ops(collection.type);
  if (!ops.compare || !ops.rpc_getnext || ops.record_size == 0 || !ops.calc_delta) {
    log_warning("poll_coll_delta: collection function not set!\n");
    return 0;
  }

  // All three are opened before any is tested: last and delta then exist, empty, even without a
  // prev. The delta file is truncated before it is locked.
  const UniqueFd prev_fd = open_file(prev_path, O_RDONLY);
  const UniqueFd last_fd = open_file(last_path, O_WRONLY | O_CREAT | O_TRUNC);
  const UniqueFd delta_fd = open_file(delta_path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!prev_fd || !last_fd || !delta_fd) {
    log_warning("poll_coll_delta: Error opening file!");
    return 0;
  }
  const FileLock lock(delta_fd.get());
  if (!lock.locked()) {
    log_warning("poll_coll_delta: Error locking delta file.");
    return 0;
  }

  RecordCache prev;
  RecordCache last;
  RecordCache delta;
  filebuf_init(prev, prev_fd.get());
  filebuf_init(last, last_fd.get());
  filebuf_init(delta, delta_fd.get());

  FileHeader previous;
  if (!read_file_header(prev_fd.get(), previous)) {
    log_warning("poll_coll_delta: Error reading header from prev file!");
    return 0;
  }
  const std::int32_t now = now_seconds();
  const std::int32_t interval = seconds_between(previous.sample_time, now);
  const FileHeader last_header{0, agent.up_time(), now, collection.type};
  if (!begin_file(last, last_header)) {
    log_warning("poll_coll_delta: Error writing header to last file.");
    return 0;
  }
  const FileHeader delta_header{interval, 0, now, collection.type};
  if (!begin_file(delta, delta_header)) {
    log_warning("poll_coll_delta: Error writing header to delta file.");
    return 0;
  }

  RowIterator rows;
  rows.control_index = collection.index;
  rows.previous_up_time = previous.up_time;
  rows.client = &agent.client();
  // A clock set back gives a negative interval. The divisor is unsigned, so the rates of this poll
  // are almost 0.
  Merge merge{ops, prev, last, delta, static_cast<std::uint32_t>(interval), now};
  return merge.run(rows) ? 1 : 0;
}

int poll_tapd_collection(Agent& agent, const CollectionRecord& collection) {
  const CollectionPaths paths = collection_paths(collection.type, collection.index);
  const PreviousSample previous = set_sample_aside(paths);
  if (previous == PreviousSample::stuck) {
    log_warning("poll_coll_delta: Error opening file!");
    return 0;
  }
  bool polled = false;
  try {
    polled = previous == PreviousSample::none
                 ? upload_first_sample(agent, collection, paths.last.text)
                 : poll_coll_delta(agent, collection, paths.last.text, paths.prev.text,
                                   paths.delta.text) == 1;
  } catch (const std::bad_alloc&) {
    log_warning("Tallyd malloc() failure.");
  }
  if (polled) return 1;
  restore_sample(paths);
  return 0;
}

}  // namespace tally
