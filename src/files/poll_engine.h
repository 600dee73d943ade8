// The delta and rate engine of the agent collections.
//
// A pass merges the rows that the agent returns now with the previous sample, into a new last file
// and the delta file. It holds no more in memory than the caches and one batch of rows. Runs on the
// poll task, with the registry lock held.
#pragma once

#include "daemon/base/collection_record.h"
#include "files/collection_ops.h"

namespace tally {

// poll_coll_delta writes the last and the delta file of a collection whose previous sample has
// already been moved to `prev_path`. Rows must come from the agent in the order of the type's
// compare operation.
//
// Rows that only the previous sample has are carried forward into the last file without a rate; new
// rows get their whole count spread over the interval.
//
// Returns 1, or 0 when a slot is missing or an open, lock, put or flush failed (logs). The files
// then stay as they are; the caller puts the previous sample back. A failed call to the agent only
// ends the rows.
[[nodiscard]] int poll_coll_delta(Agent& agent, const CollectionRecord& collection,
                                  const char* last_path, const char* prev_path,
                                  const char* delta_path);

// poll_tapd_collection polls one collection: the first time its rows become the last file; later
// the last file becomes prev and poll_coll_delta does the rest. Returns 1, or 0 with the previous
// sample put back as the last file, so that the next poll covers the longer interval. Failures are
// logged, except when the file of a first sample cannot be opened.
int poll_tapd_collection(Agent& agent, const CollectionRecord& collection);

}  // namespace tally
