#include "files/filebuf.h"

#include <unistd.h>

#include <cerrno>

#include "daemon/base/log.h"
#include "daemon/base/retry.h"

namespace tally {
namespace {

// Writes out the buffer in one write. Only EINTR is retried: a short write means that the disk is
// full, and is logged at once.
int write_waiting(RecordCache& cache, const char* failed, const char* short_write) {
  const ssize_t written =
      retry_interrupted([&] { return write(cache.fd, cache.buffer, cache.used); });
  if (written < 0) {
    log_warning("%s", failed);
    return 0;
  }
  if (static_cast<std::uint32_t>(written) != cache.used) {
    log_warning("%s", short_write);
    return 0;
  }
  cache.used = 0;
  return 1;
}

}  // namespace

void filebuf_init(RecordCache& cache, int fd) {
  cache.fd = fd;
  cache.used = 0;
  cache.count = 0;
  cache.position = 0;
}

int filebuf_write_out(RecordCache& cache) {
  return write_waiting(cache, "Unable to write poll cache to file.",
                       "Not all tallyd cached data written to file.");
}

int filebuf_flush(RecordCache& cache) {
  if (cache.used == 0) return 1;
  return write_waiting(cache, "Unable to flush poll cache to file.",
                       "Not all cached data flushed to file.");
}

int filebuf_fill(RecordCache& cache, std::uint32_t record_size) {
  const std::uint32_t wanted = kFilebufSize / record_size * record_size;
  const ssize_t got = retry_interrupted([&] { return read(cache.fd, cache.buffer, wanted); });
  if (got < 0) {
    log_warning("Error 1 reading to fill file cache.");
    return 0;
  }
  const auto bytes = static_cast<std::uint32_t>(got);
  if (bytes % record_size != 0) {
    log_warning("Error 2 reading to fill file cache.");
    return 0;
  }
  cache.count = bytes / record_size;
  cache.used = 0;
  cache.position = 0;
  return 1;
}

const unsigned char* filebuf_getnext(RecordCache& cache, std::uint32_t record_size) {
  cache.used += record_size;
  cache.position += 1;
  if (cache.position < cache.count) return filebuf_current(cache);
  if (!filebuf_fill(cache, record_size)) {
    log_debug("filebuf_getnext: ERROR filling cache!");
    return nullptr;
  }
  return cache.count == 0 ? nullptr : cache.buffer;
}

}  // namespace tally
