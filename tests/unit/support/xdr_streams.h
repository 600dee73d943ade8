// Values to and from bytes through libtirpc's own streams.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <span>
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

// SlowStream is a memory stream that never has contiguous bytes to offer, as a record stream while
// a reply arrives in small pieces.
class SlowStream {
 public:
  explicit SlowStream(std::span<const std::uint8_t> bytes) {
    xdrmem_create(&stream_, const_cast<char*>(reinterpret_cast<const char*>(bytes.data())),
                  static_cast<u_int>(bytes.size()), XDR_DECODE);
    operations_ = *stream_.x_ops;
    operations_.x_inline = [](XDR*, u_int) -> std::int32_t* { return nullptr; };
    stream_.x_ops = &operations_;
  }
  SlowStream(const SlowStream&) = delete;
  SlowStream& operator=(const SlowStream&) = delete;

  XDR* stream() { return &stream_; }

 private:
  XDR stream_{};
  XDR::xdr_ops operations_{};
};

}  // namespace tally
