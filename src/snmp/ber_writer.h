// The cursor under all writers. Private to the library.
//
// It moves forward only, over a buffer whose size the size pass (findlen.h) has computed, and
// stands still for good as soon as something does not fit. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tally {

class BerWriter {
 public:
  // Writes at `next`, at most `room` bytes; the buffer outlives the writer. SIZE_MAX trusts the
  // caller, whose cursor came without an end.
  explicit BerWriter(unsigned char* next, std::size_t room) : next_(next), room_(room) {}

  unsigned char* position() const { return next_; }

  // full tells whether the buffer was filled to its last byte.
  bool full() const { return room_ == 0; }

  // reserve returns the place of the next `count` bytes and moves behind them, or null. This is
  // the one comparison that bounds the encoder.
  unsigned char* reserve(std::size_t count) {
    if (count > room_) {
      room_ = 0;
      return nullptr;
    }
    unsigned char* const place = next_;
    next_ += count;
    room_ -= count;
    return place;
  }

 private:
  unsigned char* next_;
  std::size_t room_;
};

}  // namespace tally
