// The record cache: a buffer of whole fixed-size records over a plain file descriptor.
//
// A writer puts records and flushes at the end; a reader fills the buffer and steps through it.
// One cache serves one direction on one descriptor, which it borrows: the owner opens and closes
// it. Records may be of any size up to 8192 bytes and lie unaligned in the buffer, so move them
// with memcpy. Not thread-safe; every cache belongs to one routine.
#pragma once

#include <cstdint>

namespace tally {

inline constexpr std::uint32_t kFilebufSize = 8192;  // no record is longer, no I/O block either

struct RecordCache {
  int fd;
  std::uint32_t used;      // writing: bytes that wait; reading: offset of the current record
  std::uint32_t count;     // reading: whole records that the last fill brought
  std::uint32_t position;  // reading: number of the current record in the buffer
  unsigned char buffer[kFilebufSize];
};

// filebuf_init makes the cache empty, over a descriptor.
void filebuf_init(RecordCache& cache, int fd);

// filebuf_put appends `length` bytes as one record; what waits is written out first when they do
// not fit. Returns 1, or 0 when the record is longer than the buffer (no message) or the write
// failed or was short (logs; what waited still waits).
[[nodiscard]] int filebuf_put(RecordCache& cache, const void* bytes, std::uint32_t length);

// filebuf_flush writes out what waits. Returns 1, or 0 when the write failed or was short (logs).
[[nodiscard]] int filebuf_flush(RecordCache& cache);

// filebuf_fill reads as many whole records of `record_size` (1 to 8192) bytes as the buffer holds;
// the first is then the current one. Returns 1, with a count of 0 at the end of the file, or 0 when
// the read failed or did not end with a whole record (logs).
[[nodiscard]] int filebuf_fill(RecordCache& cache, std::uint32_t record_size);

// filebuf_getnext steps to the next record and returns it, or null at the end of the file or on an
// error (logs). On a fresh cache the first call returns the first record. The pointer lives until
// the next call.
[[nodiscard]] const unsigned char* filebuf_getnext(RecordCache& cache, std::uint32_t record_size);

// filebuf_current returns the current record of a cache that is read.
inline const unsigned char* filebuf_current(const RecordCache& cache) {
  return cache.buffer + cache.used;
}

}  // namespace tally
