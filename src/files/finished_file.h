// How a collection file shows that it is complete.
//
// The process may be killed, or the disk fill up, between any two writes, and half a sample taken
// for a whole one makes rates out of nothing. So a file starts with a sample time of 0 in its
// header, and the real time is written last of all.
#pragma once

#include <cstdint>

#include "files/file_format.h"
#include "files/filebuf.h"

namespace tally {

// begin_file puts the header, without its sample time, into the cache of an empty file. 1, or 0
// when the put failed (logs).
[[nodiscard]] int begin_file(RecordCache& cache, FileHeader header);

// finish_file flushes the cache and then writes the sample time into the header. 1, or 0 when
// either failed (logs).
[[nodiscard]] int finish_file(RecordCache& cache, std::int32_t sample_time);

}  // namespace tally
