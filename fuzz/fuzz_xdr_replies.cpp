// Replies of the agent, as the daemon decodes them. The first byte selects the procedure; the rest
// follows the RPC header.
//
// A reply is accepted if and only if rpcgen's routine accepts it, and both find the same value in
// the same bytes. So do decoding in place and from a stream whose bytes come in pieces.
#include <string_view>
#include <tuple>

#include "property.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

// For rpcgen a string ends at its first zero.
bool has_zero(const WireString& string) {
  return string.view().find('\0') != std::string_view::npos;
}
bool has_zero(const auto& /*other*/) {
  return false;
}
template <WireStruct T>
bool zero_in_string(const T& reply) {
  return std::apply([](const auto&... member) { return (has_zero(member) || ...); },
                    T::members(reply));
}

// rpcgen's routine makes room for as many rows as a reply claims to have.
template <class T>
bool claims_too_much(Span bytes) {
  std::uint32_t rows = 0;
  if constexpr (requires(T reply) { reply.rows; }) (void)decode_bytes(xdr_u_int, rows, bytes);
  return rows > bytes.size();
}

template <class T, class Theirs>
void check(Span bytes, const Theirs& rpcgen) {
  T in_place;
  const auto [good, length] = decode_bytes(xdr_wire<T>, in_place, bytes);
  const Bytes encoded = good ? encode_bytes(xdr_wire<T>, in_place) : Bytes();
  if (claims_too_much<T>(bytes)) {
    demand(!good, "rows that did not come are not taken");
  } else {
    typename Theirs::Type theirs{};
    const Decoded decoded = decode_bytes(rpcgen.xdr, theirs, bytes);
    demand(decoded.good == good, "whole replies are taken, and no others");
    demand(!good || (decoded.consumed == length && encoded.size() == length), "of the same size");
    demand(!good || zero_in_string(in_place) || encode_bytes(rpcgen.xdr, theirs) == encoded,
           "rpcgen reads the same");
    free_value(rpcgen.xdr, theirs);
  }

  SlowStream slow(bytes);
  T in_pieces;
  demand(xdr_wire(slow.stream(), &in_pieces) == good, "the slow path agrees");
  if (!good) return;
  demand(encode_bytes(xdr_wire<T>, in_pieces) == encoded, "the same value both ways");
  demand(xdr_getpos(slow.stream()) == length, "nothing behind the reply is taken");
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
