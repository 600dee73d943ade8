// Replies of the agent, as the daemon decodes them. The first byte selects the procedure; the rest
// follows the RPC header.
//
// A reply is accepted if and only if a plain walk over it finds every member, and decoding consumes
// the bytes of that walk, both in place and from a record stream that arrives in crumbs. Both ways
// give the same value, as does rpcgen's routine.
#include <algorithm>
#include <array>
#include <concepts>
#include <cstring>
#include <span>
#include <tuple>

#include "property.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

using Span = std::span<const std::uint8_t>;

// Walker steps through a reply member by member and converts nothing.
class Walker {
 public:
  explicit Walker(Span bytes) : left_(bytes) {}

  template <WireStruct T>
  bool walk(const T& shape) {
    return std::apply([&](const auto&... member) { return (walk(member) && ...); },
                      T::members(shape));
  }

  std::size_t left() const { return left_.size(); }

  // For rpcgen a string ends at its first zero.
  bool zero_in_string() const { return zero_in_string_; }

 private:
  bool skip(std::uint64_t bytes) {
    if (bytes > left_.size()) return false;
    left_ = left_.subspan(bytes);
    return true;
  }
  bool word(std::uint32_t& value) {
    if (left_.size() < 4) return false;
    value = std::uint32_t{left_[0]} << 24 | std::uint32_t{left_[1]} << 16 |
            std::uint32_t{left_[2]} << 8 | left_[3];
    return skip(4);
  }
  bool walk(std::integral auto number) { return skip(sizeof number); }
  template <class T, std::size_t kCount>
  bool walk(const std::array<T, kCount>&) {
    return skip(4 * kCount);
  }
  bool walk(const ByteList&) {
    std::uint32_t count = 0;
    return word(count) && skip(std::uint64_t{count} * 4);
  }
  bool walk(const WireString&) {
    std::uint32_t length = 0;
    if (!word(length) || length > 255) return false;
    const Span text = left_.first(std::min<std::size_t>(length, left_.size()));
    zero_in_string_ |= std::ranges::find(text, 0) != text.end();
    return skip((std::uint64_t{length} + 3) / 4 * 4);
  }
  template <class Row>
  bool walk(const WireRows<Row>&) {
    std::uint32_t count = 0;
    if (!word(count)) return false;
    while (count > 0 && walk(Row())) --count;
    return count == 0;
  }

  Span left_;
  bool zero_in_string_ = false;
};

template <class T, class Theirs>
void check(Span bytes, const Theirs& rpcgen) {
  Walker walker(bytes);
  const bool whole = walker.walk(T());
  const std::size_t length = bytes.size() - walker.left();

  T in_place;
  const Decoded decoded = decode_bytes(xdr_wire<T>, in_place, bytes);
  demand(decoded.good == whole, "whole replies are taken, and no others");

  std::minstd_rand random(static_cast<unsigned>(bytes.size()));
  Bytes wire;
  append_record(wire, bytes, 1 + bytes.size() / 3, random);
  RecordReader reader(wire, 1 + bytes.size() % 90);
  T in_crumbs;
  demand(reader.next_record(), "a record comes");
  demand(xdr_wire(reader.stream(), &in_crumbs) == whole, "the slow path agrees");
  if (!whole) return;

  demand(decoded.consumed == length, "consumed what the reply holds");
  Bytes rest(walker.left());
  demand(rest.empty() || XDR_GETBYTES(reader.stream(), reinterpret_cast<char*>(rest.data()),
                                      static_cast<u_int>(rest.size())),
         "the rest is still there");
  demand(std::ranges::equal(rest, bytes.subspan(length)), "and nothing else");

  const Bytes encoded = encode_bytes(xdr_wire<T>, in_place);
  demand(encoded.size() == length, "the same shape again");
  demand(encode_bytes(xdr_wire<T>, in_crumbs) == encoded, "the same value both ways");

  typename Theirs::Type theirs{};
  demand(decode_bytes(rpcgen.xdr, theirs, bytes).good, "rpcgen takes it");
  if (!walker.zero_in_string()) {
    demand(encode_bytes(rpcgen.xdr, theirs) == encoded, "rpcgen reads the same");
  }
  free_value(rpcgen.xdr, theirs);
}

}  // namespace
}  // namespace tally

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // Aligned, and so read in place.
  const tally::Bytes bytes(data + 1, data + size);
  unsigned number = data[0] % 24;
  tally::for_each_procedure([&]<class Procedure>(const Procedure&, const auto& theirs) {
    if (number-- == 0) tally::check<typename Procedure::Result>(bytes, theirs);
  });
  return 0;
}
