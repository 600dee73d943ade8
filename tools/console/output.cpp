#include "console/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "console/terminal.h"
#include "daemon/base/retry.h"

namespace tally {

bool Output::flush() {
  std::size_t done = 0;
  while (error_ == 0 && done < text_.size()) {
    const ssize_t written =
        retry_interrupted([&] { return write(fd_, text_.data() + done, text_.size() - done); });
    if (written < 0) error_ = errno;
    if (written > 0) done += static_cast<std::size_t>(written);
  }
  text_.clear();
  return good();
}

bool finish(Output& output) {
  const bool good = output.flush();
  if (!good && output.error() != EPIPE) {
    complain("cannot write to standard output: {}", std::strerror(output.error()));
  }
  return good;
}

}  // namespace tally
