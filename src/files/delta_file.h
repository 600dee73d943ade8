// The generic delta file: made from a prev and a last file that both exist already. The supervisor
// kinds use it; agent collections make theirs while they poll (poll_engine.h).
#pragma once

#include <cstdint>

#include "files/filebuf.h"

namespace tally {

// DeltaRoutines is what differs between the record types. Both routines are given caches that stand
// at their current record (filebuf_current).
struct DeltaRoutines {
  std::uint32_t record_size;

  // Negative, 0 or positive as the last row's key sorts before, equal to or after the prev row's.
  int (*compare)(const RecordCache& last, const RecordCache& prev);

  // Makes the row of rates; `prev` is null for a row that is new. Positive when `out` is to be
  // written. `interval` is in seconds and may be 0 or negative.
  int (*make_delta)(const RecordCache& last, const RecordCache* prev, unsigned char* out,
                    std::int32_t interval);
};

// create_delta_file merges the two sorted files. Rows that only prev has leave no trace. The file
// is emptied only after it has been locked, so that no reader with a lock sees it emptied.
//
// `last` is a cache that the caller provides and may look at from the routines; it is set up here.
//
// Returns 1, or 0 when an open, lock, fill, put or flush failed (logs); the delta file is removed
// then. A prev or last file without a whole header (logs) counts as success: the delta file is left
// empty.
[[nodiscard]] int create_delta_file(const char* last_path, const char* prev_path,
                                    const char* delta_path, const DeltaRoutines& routines,
                                    RecordCache& last);

}  // namespace tally
