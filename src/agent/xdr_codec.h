// The XDR codec (RFC 4506): one description of a type's members serves encode, decode and free.
//
// A wire type lists its members in wire order:
//
//   static constexpr auto members(auto& self) { return std::tie(self.index, self.request); }
//
// and xdr_wire<Type> is then its routine over libtirpc's streams. Members are 4- and 8-byte
// integers, arrays of words, strings, byte lists, byte vectors and row lists; see `WireTraits`.
//
// Speed: the stock decoder calls the stream once for every 4 bytes. This one asks the stream for
// all bytes that a well-formed message must still hold, in place where they lie in the stream's
// buffer (XDR_INLINE) and copied where a fragment ends, and decodes from there.
//
// Safety: no byte is touched before WireReader::need has made sure of it; the other limits are
// those of a text and of a whole message. Counts from the wire size nothing: memory grows with the
// bytes that arrived. The agent may send anything; a message that ends early or exceeds a limit
// makes the routine return FALSE.
#pragma once

#include <rpc/rpc.h>

#include <array>
#include <bit>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "agent/byte_list.h"
#include "agent/wire_rows.h"
#include "agent/wire_stream.h"

namespace tally {

static_assert(std::endian::native == std::endian::little);

template <class T>
concept WireStruct = requires(T& value) {
  T::members(value);
};

namespace wire {

// kLeast is the fewest bytes that a member of a type takes on the wire: one unit of 4 bytes for
// most, among them the counts with which lists and strings start.
template <class T>
inline constexpr std::size_t kLeast = 4;
template <>
inline constexpr std::size_t kLeast<std::uint64_t> = 8;
template <class T, std::size_t kCount>
inline constexpr std::size_t kLeast<std::array<T, kCount>> = 4 * kCount;

// kFixed tells whether it always takes just these.
template <class T>
inline constexpr bool kFixed = true;
template <>
inline constexpr bool kFixed<ByteList> = false;
template <>
inline constexpr bool kFixed<WireString> = false;
template <class Row>
inline constexpr bool kFixed<WireRows<Row>> = false;

template <class T>
using Members = decltype(T::members(std::declval<T&>()));
template <class T>
inline constexpr std::size_t kMemberCount = std::tuple_size_v<Members<T>>;
template <class T, std::size_t I>
using Member = std::remove_cvref_t<std::tuple_element_t<I, Members<T>>>;

// least_size is the fewest bytes that a struct takes on the wire.
template <WireStruct T>
consteval std::size_t least_size() {
  return []<std::size_t... I>(std::index_sequence<I...>) {
    return (std::size_t{0} + ... + kLeast<Member<T, I>>);
  }
  (std::make_index_sequence<kMemberCount<T>>());
}

// run_size is the length of the run of bytes that is certain from member I on: all fixed members
// up to the next variable one, and that one's count.
template <class T, std::size_t I>
consteval std::size_t run_size() {
  if constexpr (I == kMemberCount<T>) {
    return 0;
  } else if constexpr (!kFixed<Member<T, I>>) {
    return 4;
  } else {
    return kLeast<Member<T, I>> + run_size<T, I + 1>();
  }
}

// A run starts at the first member and after every variable one.
template <class T, std::size_t I>
consteval bool starts_run() {
  if constexpr (I == 0) {
    return true;
  } else {
    return !kFixed<Member<T, I - 1>>;
  }
}

// --- decode: the bytes of a fixed member, or of a variable one's count, are already there ---

bool decode(WireReader& in, std::integral auto& value) {
  using Integer = std::remove_reference_t<decltype(value)>;
  value = static_cast<Integer>(sizeof value == 8 ? in.u64() : in.u32());
  return true;
}
template <class T, std::size_t kCount>
bool decode(WireReader& in, std::array<T, kCount>& elements) {  // of one unit each
  for (T& element : elements) element = static_cast<T>(in.u32());
  return true;
}
// Nearly every byte list is the address of a network (IPv4, IPv6) or a MAC address; their units are
// read without a loop.
template <std::uint32_t kCount>
bool decode_units(WireReader& in, ByteList& value) {
  if (!in.need(kCount * std::size_t{4})) return false;
  in.units(value.resize(kCount), kCount);
  return true;
}
bool decode_any_length(WireReader& in, std::uint32_t count, ByteList& value);
inline bool decode(WireReader& in, ByteList& value) {
  switch (const std::uint32_t count = in.u32()) {
    case 4:
      return decode_units<4>(in, value);
    case 6:
      return decode_units<6>(in, value);
    case 16:
      return decode_units<16>(in, value);
    default:
      return decode_any_length(in, count, value);
  }
}
bool decode(WireReader& in, WireString& value);

template <WireStruct T>
bool decode(WireReader& in, T& value);

// 100 rows of any type with addresses of any sane length fit in a reply of this many bytes.
inline constexpr std::uint64_t kUsualReply = 64 * 1024;

template <class Row>
bool decode(WireReader& in, WireRows<Row>& list) {
  list.clear();
  list.keep_buffer(false);  // unless all goes well
  const std::uint32_t count = in.u32();
  for (std::uint32_t left = count; left > 0; --left) {
    in.promise(std::uint64_t{left - 1} * least_size<Row>());
    if (!decode(in, list.next_row())) return false;
  }
  in.promise(0);
  list.keep_buffer(in.taken() <= kUsualReply);
  return true;
}

template <WireStruct T, std::size_t I>
bool decode_member(WireReader& in, Members<T>& members) {
  if constexpr (starts_run<T, I>() && run_size<T, I>() > 0) {
    if (!in.need(run_size<T, I>())) return false;
  }
  return decode(in, std::get<I>(members));
}

template <WireStruct T>
bool decode(WireReader& in, T& value) {
  auto members = T::members(value);
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    return (decode_member<T, I>(in, members) && ...);
  }
  (std::make_index_sequence<kMemberCount<T>>());
}

// --- encode ---

void encode(WireWriter& out, std::integral auto value) {
  if constexpr (sizeof value == 8) out.u32(static_cast<std::uint32_t>(value >> 32));
  out.u32(static_cast<std::uint32_t>(value));
}
template <class T, std::size_t kCount>
void encode(WireWriter& out, const std::array<T, kCount>& elements) {
  for (const T element : elements) out.u32(element);
}
void encode(WireWriter& out, const ByteList& value);
void encode(WireWriter& out, const WireString& value);

template <WireStruct T>
void encode(WireWriter& out, const T& value);

template <class Row>
void encode(WireWriter& out, const WireRows<Row>& list) {
  out.u32(list.size());
  for (const Row& row : list.rows()) encode(out, row);
}

template <WireStruct T>
void encode(WireWriter& out, const T& value) {
  std::apply([&](const auto&... member) { (encode(out, member), ...); }, T::members(value));
}

}  // namespace wire

// xdr_wire is the XDR routine of a wire type. Decoding overwrites the value; after a failure it
// holds what came and must still be freed.
template <WireStruct T>
bool_t xdr_wire(XDR* stream, T* value) {
  switch (stream->x_op) {
    case XDR_ENCODE: {
      WireWriter out(stream);
      wire::encode(out, std::as_const(*value));
      return out.flush() ? TRUE : FALSE;
    }
    case XDR_DECODE: {
      WireReader in(stream);
      try {
        const bool whole = wire::decode(in, *value);
        assert(!whole || in.drained());  // nothing was taken from the next record
        return whole ? TRUE : FALSE;
      } catch (const std::bad_alloc&) {
        return FALSE;
      }
    }
    case XDR_FREE:
      *value = T{};
  }
  return TRUE;
}

// wire_routine is xdr_wire behind an untyped pointer.
template <WireStruct T>
bool_t wire_routine(XDR* stream, void* value) {
  return xdr_wire(stream, static_cast<T*>(value));
}

}  // namespace tally
