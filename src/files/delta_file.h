// Makes a delta file from existing prev and last files. supvlan and ifstats use it; agent
// collections make theirs as they poll (poll_engine.h).
#pragma once

#include <cstdint>

#include "files/filebuf.h"

namespace tally {

// DeltaRoutines is what differs between the record types. Both routines look at the current records
// of their caches (filebuf_current).
struct DeltaRoutines {
  std::uint32_t record_size;

  // Negative, 0 or positive as the last row's key sorts before, equal to or after the prev row's.
  int (*compare)(const RecordCache& last, const RecordCache& prev);

  // Makes the row of rates; `prev` is null for a new row. Positive when `out` is to be written.
  // `interval` is in seconds and may be 0 or negative.
  int (*make_delta)(const RecordCache& last, const RecordCache* prev, unsigned char* out,
                    std::int32_t interval);
};

// create_delta_file merges the two files as if both were sorted: a row that is out of order may
// count as new. Rows that only prev has are dropped. The delta file is truncated only once it is
// locked, so that no reader with a lock sees it shrink.
//
// `last` is a cache that the caller provides and that is set up here.
//
// Returns 1, or 0 when an open, lock, fill, put or flush failed (logs); the delta file is then
// removed. A prev or last file without a whole header (logs) counts as success and leaves it empty.
[[nodiscard]] int create_delta_file(const char* last_path, const char* prev_path,
                                    const char* delta_path, const DeltaRoutines& routines,
                                    RecordCache& last);

}  // namespace tally
