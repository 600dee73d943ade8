// Values to and from bytes through libtirpc's own streams.
#pragma once

#include <rpc/rpc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <span>
#include <utility>
#include <vector>

namespace tally {

using Bytes = std::vector<std::uint8_t>;

// encode_bytes runs an XDR routine over a memory stream; empty if it refuses.
template <class T>
Bytes encode_bytes(bool_t (*routine)(XDR*, T*), T& value) {
  static Bytes buffer(std::size_t{1} << 20);
  XDR stream;
  xdrmem_create(&stream, reinterpret_cast<char*>(buffer.data()), static_cast<u_int>(buffer.size()),
                XDR_ENCODE);
  const bool_t good = routine(&stream, &value);
  Bytes bytes(buffer.data(), buffer.data() + (good ? xdr_getpos(&stream) : 0));
  xdr_destroy(&stream);
  return bytes;
}

struct Decoded {
  bool good = false;
  std::size_t consumed = 0;
};

// decode_bytes runs an XDR routine over a memory stream of just these bytes.
template <class T>
Decoded decode_bytes(bool_t (*routine)(XDR*, T*), T& value, std::span<const std::uint8_t> bytes) {
  XDR stream;
  xdrmem_create(&stream, const_cast<char*>(reinterpret_cast<const char*>(bytes.data())),
                static_cast<u_int>(bytes.size()), XDR_DECODE);
  const bool_t good = routine(&stream, &value);
  const Decoded result{good == TRUE, xdr_getpos(&stream)};
  xdr_destroy(&stream);
  return result;
}

template <class T>
void free_value(bool_t (*routine)(XDR*, T*), T& value) {
  xdr_free(reinterpret_cast<xdrproc_t>(routine), &value);
}

inline void append_word(Bytes& bytes, std::uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

// append_record appends a message as record fragments (RFC 5531, record marking) of 1 to
// `longest_fragment` bytes.
inline void append_record(Bytes& wire, std::span<const std::uint8_t> message,
                          std::size_t longest_fragment, std::minstd_rand& random) {
  do {
    const std::size_t length = std::min(message.size(), 1 + random() % longest_fragment);
    const bool last = length == message.size();
    append_word(wire, static_cast<std::uint32_t>(length) | (last ? 1U << 31 : 0U));
    wire.insert(wire.end(), message.begin(), message.begin() + static_cast<std::ptrdiff_t>(length));
    message = message.subspan(length);
  } while (!message.empty());
}

// RecordReader is the stream of a TCP connection: the peer's bytes arrive in reads of 1 to
// `longest_read` bytes, in the smallest buffer that the library makes.
class RecordReader {
 public:
  RecordReader(Bytes wire, std::size_t longest_read)
      : wire_(std::move(wire)), longest_read_(longest_read) {
    xdrrec_create(&stream_, kBuffer, kBuffer, this, read, write);
    stream_.x_op = XDR_DECODE;
  }
  ~RecordReader() { xdr_destroy(&stream_); }
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  // next_record skips the rest of the current record.
  bool next_record() { return xdrrec_skiprecord(&stream_) == TRUE; }

  XDR* stream() { return &stream_; }

 private:
  static constexpr u_int kBuffer = 104;

  static int read(void* self, void* to, int most) {
    auto& reader = *static_cast<RecordReader*>(self);
    const std::size_t left = reader.wire_.size() - reader.at_;
    if (left == 0) return -1;
    const std::size_t length = std::min(
        {left, static_cast<std::size_t>(most), 1 + reader.random_() % reader.longest_read_});
    std::memcpy(to, reader.wire_.data() + reader.at_, length);
    reader.at_ += length;
    return static_cast<int>(length);
  }
  static int write(void* /*self*/, void* /*from*/, int length) { return length; }

  Bytes wire_;
  std::size_t at_ = 0;
  std::size_t longest_read_;
  std::minstd_rand random_{7};
  XDR stream_{};
};

}  // namespace tally
