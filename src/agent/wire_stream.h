// Cursors over libtirpc's XDR streams: the one place where a length meets what is left.
#pragma once

#include <rpc/rpc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tally {

// WireReader reads big-endian units from an XDR stream through a window of contiguous bytes.
//
// need(n) makes the next n bytes readable; the plain readers below it do not test again. Bytes
// are taken from the stream only when a well-formed message is sure to hold them: those that
// need() names and those that promise() says will follow.
class WireReader {
 public:
  // The longest run that need() may ask for.
  static constexpr std::size_t kWindow = 8192;

  // No reply may be longer, in bytes: 100 rows with addresses of 255 bytes take a fifth of it. It
  // bounds what an agent can make this process hold.
  static constexpr std::uint64_t kLongestMessage = std::uint64_t{1} << 20;

  explicit WireReader(XDR* stream) : stream_(stream) {}
  WireReader(const WireReader&) = delete;
  WireReader& operator=(const WireReader&) = delete;

  // need makes the next `bytes` (up to kWindow, a multiple of 4) readable. False when the message
  // ends before, or is longer than kLongestMessage.
  [[nodiscard]] bool need(std::size_t bytes) { return bytes <= left() || refill(bytes); }

  // promise tells how many bytes will follow, at the least, those that need() asks for.
  void promise(std::uint64_t bytes) { promised_ = bytes; }

  std::uint32_t u32() {
    std::uint32_t value;
    std::memcpy(&value, at_, sizeof value);
    at_ += sizeof value;
    return __builtin_bswap32(value);
  }
  std::uint64_t u64() {
    std::uint64_t value;
    std::memcpy(&value, at_, sizeof value);
    at_ += sizeof value;
    return __builtin_bswap64(value);
  }

  // units reads `count` bytes that travel as one 4-byte unit each.
  void units(std::uint8_t* to, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) to[i] = at_[4 * i + 3];
    at_ += 4 * count;
  }

  // raw reads `count` bytes and skips the zeros that fill the last unit.
  void raw(char* to, std::size_t count) {
    std::memcpy(to, at_, count);
    at_ += (count + 3) / 4 * 4;
  }

  // taken returns how many bytes were taken from the stream.
  std::uint64_t taken() const { return taken_; }

  // drained tells whether every byte that was taken from the stream has been read.
  bool drained() const { return left() == 0; }

 private:
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  bool refill(std::size_t bytes);

  XDR* stream_;
  const std::uint8_t* at_ = buffer_;
  const std::uint8_t* end_ = buffer_;
  std::uint64_t promised_ = 0;
  std::uint64_t taken_ = 0;
  std::uint8_t buffer_[kWindow];
};

// WireWriter collects big-endian units and hands them to an XDR stream in blocks.
class WireWriter {
 public:
  explicit WireWriter(XDR* stream) : stream_(stream) {}
  WireWriter(const WireWriter&) = delete;
  WireWriter& operator=(const WireWriter&) = delete;

  void u32(std::uint32_t value) {
    if (used_ == sizeof buffer_) (void)flush();
    value = __builtin_bswap32(value);
    std::memcpy(buffer_ + used_, &value, sizeof value);
    used_ += sizeof value;
  }

  // flush hands on what was collected. Once it has failed, it always fails.
  [[nodiscard]] bool flush() {
    good_ = good_ && (used_ == 0 || XDR_PUTBYTES(stream_, buffer_, used_) == TRUE);
    used_ = 0;
    return good_;
  }

 private:
  XDR* stream_;
  u_int used_ = 0;
  bool good_ = true;
  char buffer_[512];
};

}  // namespace tally
