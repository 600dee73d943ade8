// The bytes of a file, to be read from the front to the back in blocks.
//
// They are in memory, or behind a descriptor whose file nobody changes any more: a private copy,
// or a sample, which the daemon renames and removes but never writes again once it is whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "files/unique_fd.h"

namespace tally {

class FileBytes {
 public:
  FileBytes() = default;
  explicit FileBytes(std::vector<unsigned char> bytes)
      : size_(bytes.size()), bytes_(std::move(bytes)) {}
  FileBytes(UniqueFd fd, std::uint64_t size) : size_(size), fd_(std::move(fd)) {}

  std::uint64_t size() const { return size_; }

  // read copies what lies at `offset` and returns how many octets there were: fewer than asked for
  // at the end, or when the file cannot be read.
  std::size_t read(std::uint64_t offset, std::span<unsigned char> into) const;

  // in_memory returns all bytes if they are in memory, else null.
  const unsigned char* in_memory() const { return fd_ ? nullptr : bytes_.data(); }

 private:
  std::uint64_t size_ = 0;
  std::vector<unsigned char> bytes_;
  UniqueFd fd_;
};

// read_at reads from a file until `into` is full, and returns how many octets there were. With
// fewer than asked for errno is 0 at the end of the file, else it says why.
std::size_t read_at(int fd, std::uint64_t offset, std::span<unsigned char> into);

// copy_of takes a private copy of the whole of an open file as fast as the system can: small files
// into memory, larger ones into an unlinked temporary file ($TMPDIR, or /var/tmp), so that memory
// does not grow with the file; into memory, too, when no temporary file can be made. Returns 0 or
// an errno value.
int copy_of(int fd, std::uint64_t size, FileBytes& copy);

// Records gives the records behind the header of a file one after the other.
class Records {
 public:
  Records(const FileBytes& bytes, std::size_t header, std::size_t record_size);

  // next returns the next whole record, good until the call after, or null at the end.
  const unsigned char* next() {
    if (at_ != end_) {
      const unsigned char* record = at_;
      at_ += record_size_;
      return record;
    }
    return refill();
  }

 private:
  const unsigned char* refill();

  const FileBytes* bytes_;
  std::size_t record_size_;
  std::uint64_t offset_;
  std::vector<unsigned char> block_;
  const unsigned char* at_ = nullptr;
  const unsigned char* end_ = nullptr;
};

}  // namespace tally
