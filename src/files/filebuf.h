// The record cache: a buffer of whole fixed-size records over a plain file descriptor.
//
// A writer puts records and flushes at the end; a reader fills the buffer and steps through it.
// One cache serves one direction on one descriptor, which it borrows: the owner opens and closes
// it. Records may be of any size up to 8192 bytes and lie unaligned in the buffer, so move them
// with memcpy. Not thread-safe; every cache belongs to one routine.
#pragma once

#include <cstdint>
#include <cstring>

namespace tally {

inline constexpr std::uint32_t kFilebufSize = 8192;  // limit of a record, a read and a write

struct RecordCache {
  int fd;
  std::uint32_t used;      // writing: bytes waiting; reading: offset of the current record
  std::uint32_t count;     // reading: whole records from the last fill
  std::uint32_t position;  // reading: number of the current record in the buffer
  unsigned char buffer[kFilebufSize];
};

// filebuf_init makes the cache empty, over a descriptor.
void filebuf_init(RecordCache& cache, int fd);

// filebuf_room returns where the next record of `length` bytes goes, so that it can be made in
// place, or null when it does not fit. filebuf_commit then adds it.
inline unsigned char* filebuf_room(RecordCache& cache, std::uint32_t length) {
  return length <= kFilebufSize - cache.used ? cache.buffer + cache.used : nullptr;
}
inline void filebuf_commit(RecordCache& cache, std::uint32_t length) {
  cache.used += length;
}

// filebuf_flush writes out the buffer. Returns 1, or 0 when the write failed or was short (logs).
[[nodiscard]] int filebuf_flush(RecordCache& cache);

// filebuf_fill reads as many whole records of `record_size` (1 to 8192) bytes as the buffer holds;
// the first is then the current one. Returns 1, with a count of 0 at the end of the file, or 0 when
// the read failed or did not end with a whole record (logs).
[[nodiscard]] int filebuf_fill(RecordCache& cache, std::uint32_t record_size);

// filebuf_getnext steps to the next record and returns it, or null at the end of the file or on an
// error (logs). On a fresh cache the first call returns the first record. The pointer is valid
// until the next call.
[[nodiscard]] const unsigned char* filebuf_getnext(RecordCache& cache, std::uint32_t record_size);

// filebuf_write_out writes out the buffer for filebuf_put. Returns 1, or 0 (logs).
[[nodiscard]] int filebuf_write_out(RecordCache& cache);

// filebuf_put appends a record of `length` bytes, writing out the buffer first when it does not
// fit. Returns 1, or 0 when the record is longer than the buffer (silently), or the write failed or
// was short (logs; the buffer stays as it was).
[[nodiscard]] inline int filebuf_put(RecordCache& cache, const void* bytes, std::uint32_t length) {
  if (length > kFilebufSize) return 0;
  if (length > kFilebufSize - cache.used && !filebuf_write_out(cache)) return 0;
  std::memcpy(cache.buffer + cache.used, bytes, length);
  filebuf_commit(cache, length);
  return 1;
}

// filebuf_current returns the current record of a cache that reads.
inline const unsigned char* filebuf_current(const RecordCache& cache) {
  return cache.buffer + cache.used;
}

}  // namespace tally
