#include "files/finished_file.h"

#include <unistd.h>

#include <cstddef>

#include "daemon/base/log.h"
#include "daemon/base/retry.h"

namespace tally {

int begin_file(RecordCache& cache, FileHeader header) {
  header.sample_time = 0;
  return filebuf_put(cache, &header, sizeof header);
}

int finish_file(RecordCache& cache, std::int32_t sample_time) {
  if (!filebuf_flush(cache)) return 0;
  const ssize_t written = retry_interrupted([&] {
    return pwrite(cache.fd, &sample_time, sizeof sample_time, offsetof(FileHeader, sample_time));
  });
  if (written == sizeof sample_time) return 1;
  log_warning("Unable to flush poll cache to file.");
  return 0;
}

}  // namespace tally
