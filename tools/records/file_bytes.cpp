#include "records/file_bytes.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "daemon/base/retry.h"

namespace tally {
namespace {

constexpr std::size_t kBlock = 65536;
constexpr std::uint64_t kSmall = 1 << 20;

UniqueFd temporary_file() {
  const char* directory = std::getenv("TMPDIR");
  const std::string where = directory != nullptr && *directory != '\0' ? directory : "/var/tmp";
  return UniqueFd(open(where.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600));
}

// copy_within_kernel returns 0 or an errno value; the copy is only good when all was copied.
int copy_within_kernel(int from, int to, std::uint64_t size) {
  off_t offset = 0;
  while (static_cast<std::uint64_t>(offset) < size) {
    const auto left = size - static_cast<std::uint64_t>(offset);
    ssize_t copied =
        retry_interrupted([&] { return copy_file_range(from, &offset, to, nullptr, left, 0); });
    // Not between all file systems, which sendfile(2) does not mind.
    if (copied < 0) copied = retry_interrupted([&] { return sendfile(to, from, &offset, left); });
    if (copied < 0) return errno;
    if (copied == 0) return ENODATA;  // it became shorter
  }
  return 0;
}

int read_whole(int fd, std::uint64_t size, FileBytes& copy) {
  std::vector<unsigned char> bytes(size);
  bytes.resize(read_at(fd, 0, bytes));
  if (bytes.size() < size && errno != 0) return errno;
  copy = FileBytes(std::move(bytes));
  return 0;
}

}  // namespace

std::size_t FileBytes::read(std::uint64_t offset, std::span<unsigned char> into) const {
  if (offset >= size_) return 0;
  const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(into.size(), size_ - offset));
  if (!fd_) {
    std::memcpy(into.data(), bytes_.data() + offset, want);
    return want;
  }
  return read_at(fd_.get(), offset, into.first(want));
}

std::size_t read_at(int fd, std::uint64_t offset, std::span<unsigned char> into) {
  std::size_t used = 0;
  ssize_t got = 1;
  errno = 0;
  while (used < into.size() && got > 0) {
    got = retry_interrupted([&] {
      return pread(fd, into.data() + used, into.size() - used, static_cast<off_t>(offset + used));
    });
    if (got > 0) used += static_cast<std::size_t>(got);
  }
  return used;
}

int copy_of(int fd, std::uint64_t size, FileBytes& copy) {
  if (size <= kSmall) return read_whole(fd, size, copy);
  UniqueFd file = temporary_file();
  if (!file) return read_whole(fd, size, copy);
  const int error = copy_within_kernel(fd, file.get(), size);
  if (error == ENOSPC || error == EDQUOT || error == EFBIG) return read_whole(fd, size, copy);
  if (error == 0) copy = FileBytes(std::move(file), size);
  return error;
}

Records::Records(const FileBytes& bytes, std::size_t header, std::size_t record_size)
    : bytes_(&bytes), record_size_(record_size), offset_(header) {
  if (bytes.size() < header || bytes.in_memory() == nullptr) return;
  at_ = bytes.in_memory() + header;
  end_ = at_ + (bytes.size() - header) / record_size * record_size;
  offset_ = bytes.size();
}

const unsigned char* Records::refill() {
  if (offset_ >= bytes_->size()) return nullptr;
  block_.resize(kBlock / record_size_ * record_size_);
  const std::size_t got = bytes_->read(offset_, block_) / record_size_ * record_size_;
  offset_ = got == 0 ? bytes_->size() : offset_ + got;
  if (got == 0) return nullptr;
  at_ = block_.data() + record_size_;
  end_ = block_.data() + got;
  return block_.data();
}

}  // namespace tally
