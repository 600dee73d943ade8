// The cursor under all parsers. Private to the library.
//
// It moves forward only and never leaves its span. A read of bytes that are not there makes it
// overrun: it then stands at the end, for good, and what it returns is zero or null. So a parser
// may read an element's header without a test and ask for the overrun once. Not thread-safe; the
// bytes outlive the reader.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tally {

class BerReader {
 public:
  BerReader(const unsigned char* next, const unsigned char* end) : next_(next), end_(end) {}

  const unsigned char* position() const { return next_; }
  const unsigned char* end() const { return end_; }
  bool at_end() const { return next_ == end_; }
  bool overrun() const { return overrun_; }

  // peek returns the next byte without moving, 0 when there is none.
  unsigned char peek() const { return at_end() ? static_cast<unsigned char>(0) : *next_; }

  // take_bytes returns the next `count` bytes and moves behind them, or null. This is the one
  // comparison that bounds the decoder.
  const unsigned char* take_bytes(std::size_t count) {
    if (overrun_ || count > static_cast<std::size_t>(end_ - next_)) {
      overrun_ = true;
      next_ = end_;
      return nullptr;
    }
    const unsigned char* const bytes = next_;
    next_ += count;
    return bytes;
  }

  // take returns the next byte.
  unsigned char take() {
    const unsigned char* const byte = take_bytes(1);
    return byte == nullptr ? static_cast<unsigned char>(0) : *byte;
  }

  // narrow ends the span `count` bytes ahead. False, and no change, when it ends before.
  bool narrow(std::size_t count) {
    if (overrun_ || count > static_cast<std::size_t>(end_ - next_)) return false;
    end_ = next_ + count;
    return true;
  }

 private:
  const unsigned char* next_;
  const unsigned char* end_;
  bool overrun_ = false;
};

}  // namespace tally
