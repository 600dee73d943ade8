// The cursor under all parsers. Private to the library.
//
// It moves forward only and never leaves its span. Not thread-safe; the bytes outlive the reader.
#pragma once

#include <cstddef>

namespace tally {

class BerReader {
 public:
  // A `next` beyond `end` has nothing to read, just as one at `end`.
  BerReader(const unsigned char* next, const unsigned char* end)
      : next_(next), end_(end < next ? next : end) {}

  const unsigned char* position() const { return next_; }
  std::size_t left() const { return static_cast<std::size_t>(end_ - next_); }
  bool at_end() const { return next_ == end_; }

  // peek returns the next byte without moving, 0 when there is none.
  unsigned char peek() const { return at_end() ? static_cast<unsigned char>(0) : *next_; }

  // take returns the next byte and moves past it; there must be one.
  unsigned char take() { return *next_++; }

  // take_bytes returns the next `count` bytes and moves past them. When there are fewer it returns
  // null and moves to the end.
  const unsigned char* take_bytes(std::size_t count) {
    if (count > left()) {
      next_ = end_;
      return nullptr;
    }
    const unsigned char* const bytes = next_;
    next_ += count;
    return bytes;
  }

  // narrow ends the span `count` bytes ahead. False, and no change, when it ends before.
  bool narrow(std::size_t count) {
    if (count > left()) return false;
    end_ = next_ + count;
    return true;
  }

 private:
  const unsigned char* next_;
  const unsigned char* end_;
};

}  // namespace tally
