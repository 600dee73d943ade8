// The cursor under all writers. Private to the library.
//
// It moves forward only, over a buffer whose size the size pass (findlen.h) has computed. It is
// spoilt for good as soon as something does not fit, or does not fill what was meant for it: the
// sizes were wrong then. Not thread-safe.
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
  bool full() const { return room_ == 0; }
  bool spoilt() const { return spoilt_; }

  // spoil returns false, for a writer to pass on.
  bool spoil() {
    spoilt_ = true;
    room_ = 0;
    return false;
  }

  // reserve returns the place of the next `count` bytes and moves behind them, or null. This is
  // the one comparison that bounds the encoder.
  unsigned char* reserve(std::size_t count) {
    if (count > room_) {
      spoil();
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
  bool spoilt_ = false;
};

}  // namespace tally
