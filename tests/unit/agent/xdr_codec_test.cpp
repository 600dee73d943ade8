// The codec against rpcgen's routines and libtirpc's streams, for every wire type.
#include "agent/xdr_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <type_traits>

#include "support/allocations.h"
#include "support/wire_filler.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

// same compares a member of ours with rpcgen's: the value, and for numbers the type.
template <class Ours, class Theirs>
requires std::is_integral_v<Ours>
bool same(Ours ours, const Theirs& theirs) {
  static_assert(sizeof(Ours) == sizeof(Theirs) &&
                std::is_signed_v<Ours> == std::is_signed_v<Theirs>);
  return ours == static_cast<Ours>(theirs);
}
bool same(const ByteList& ours, const tapd_bytes& theirs) {
  return std::ranges::equal(ours.bytes(), std::span(theirs.tapd_bytes_val, theirs.tapd_bytes_len));
}
bool same(const ByteVector20& ours, const tapd_address20& theirs) {
  return std::ranges::equal(ours, theirs);
}
bool same(const WireString& ours, const char* theirs) {
  return ours.view() == theirs;
}

template <class T>
void expect_same_fields(const T& ours, const typename Peer<T>::Type& theirs);

template <class Row, class Rows>
bool same(const RowList<Row>& ours, const Rows& theirs) {
  if (ours.size() != theirs.rows_len) return false;
  for (std::uint32_t i = 0; i < ours.size(); ++i) expect_same_fields(ours[i], theirs.rows_val[i]);
  return true;
}

template <class T>
void expect_same_fields(const T& ours, const typename Peer<T>::Type& theirs) {
  std::size_t fields = 0;
  Peer<T>::fields(ours, theirs, [&](const char* name, const auto& our, const auto& their) {
    EXPECT_TRUE(same(our, their)) << name;
    ++fields;
  });
  EXPECT_EQ(fields, wire::kMemberCount<T>);
}

// What rpcgen makes of our bytes, and we of its bytes.
template <class T>
void check_against_rpcgen(T& value) {
  using Theirs = typename Peer<T>::Type;
  const Bytes bytes = encode_bytes(xdr_wire<T>, value);
  ASSERT_FALSE(bytes.empty());
  Theirs theirs{};
  const Decoded by_them = decode_bytes<Theirs>(Peer<T>::xdr, theirs, bytes);
  ASSERT_TRUE(by_them.good);
  EXPECT_EQ(by_them.consumed, bytes.size());
  expect_same_fields(value, theirs);
  EXPECT_EQ(encode_bytes<Theirs>(Peer<T>::xdr, theirs), bytes);

  T back;
  const Decoded by_us = decode_bytes(xdr_wire<T>, back, bytes);
  ASSERT_TRUE(by_us.good);
  EXPECT_EQ(by_us.consumed, bytes.size());
  expect_same_fields(back, theirs);
  free_value<Theirs>(Peer<T>::xdr, theirs);
}

// A record with the value and one more word, and a second record, in pieces of all sizes.
template <class T>
void check_record_stream(T& value) {
  constexpr std::uint32_t kMarker = 0x12345678;
  const Bytes bytes = encode_bytes(xdr_wire<T>, value);
  Bytes message = bytes;
  append_word(message, kMarker);
  for (const std::size_t longest_fragment : {3U, 50U, 1U << 20}) {
    for (const std::size_t longest_read : {1U, 5U, 90U, 8000U}) {
      std::minstd_rand random(static_cast<unsigned>(longest_fragment + longest_read));
      Bytes wire;
      append_record(wire, message, longest_fragment, random);
      append_record(wire, bytes, longest_fragment, random);
      RecordReader reader(wire, longest_read);
      T back;
      u_int marker = 0;
      ASSERT_TRUE(reader.next_record());
      ASSERT_TRUE(xdr_wire(reader.stream(), &back));
      EXPECT_TRUE(xdr_u_int(reader.stream(), &marker));
      EXPECT_EQ(marker, kMarker) << "read too much or too little";
      EXPECT_EQ(encode_bytes(xdr_wire<T>, back), bytes);
      ASSERT_TRUE(reader.next_record());
      ASSERT_TRUE(xdr_wire(reader.stream(), &back)) << "the record behind it";
      EXPECT_EQ(encode_bytes(xdr_wire<T>, back), bytes);
    }
  }
}

TEST(XdrCodec, AgreesWithRpcgenAndReadsAnyStream) {
  for_each_wire_type([]<class T>(const char* name) {
    SCOPED_TRACE(name);
    for (unsigned seed = 1; seed <= 30; ++seed) {
      T value;
      WireFiller(seed).fill(value);
      check_against_rpcgen(value);
      if (seed <= 5) check_record_stream(value);
      if (testing::Test::HasFailure()) return;
    }
    T batch;  // longer than the codec's window
    WireFiller(1, 100, 100).fill(batch);
    check_against_rpcgen(batch);
    check_record_stream(batch);
  });
}

TEST(XdrCodec, RefusesEveryProperPrefix) {
  for_each_wire_type([]<class T>(const char* name) {
    SCOPED_TRACE(name);
    T value;
    WireFiller(3, 1, 3).fill(value);
    const Bytes bytes = encode_bytes(xdr_wire<T>, value);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
      const auto prefix = std::span(bytes).first(length);
      T part;
      ASSERT_FALSE(decode_bytes(xdr_wire<T>, part, prefix).good) << length;
      std::minstd_rand random(1);
      Bytes wire;
      append_record(wire, prefix.empty() ? std::span(bytes).first(1) : prefix, 40, random);
      append_record(wire, bytes, 40, random);
      RecordReader reader(wire, 30);
      ASSERT_TRUE(reader.next_record());
      ASSERT_FALSE(xdr_wire(reader.stream(), &part)) << length;
      ASSERT_TRUE(reader.next_record() && xdr_wire(reader.stream(), &part)) << length;
      ASSERT_EQ(encode_bytes(xdr_wire<T>, part), bytes) << length;
    }
  });
}

// Any word may be a count, and a hostile one must cost no more than the bytes that came with it.
TEST(XdrCodec, HostileCountsCostNothing) {
  for_each_wire_type([]<class T>(const char* name) {
    SCOPED_TRACE(name);
    T value;
    WireFiller(5, 2, 3).fill(value);
    const Bytes good = encode_bytes(xdr_wire<T>, value);
    for (std::size_t at = 0; at < good.size(); at += 4) {
      for (const int byte : {0xff, 0x7f, 0x40, 0x01}) {
        Bytes bytes = good;
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 4, byte);
        T part;
        const std::size_t before = allocations().bytes;
        static_cast<void>(decode_bytes(xdr_wire<T>, part, bytes));
        ASSERT_LT(allocations().bytes - before, 4096 + 16 * bytes.size()) << at;
      }
    }
  });
}

Bytes words(std::initializer_list<std::uint32_t> list) {
  Bytes bytes;
  for (const std::uint32_t word : list) append_word(bytes, word);
  return bytes;
}

TEST(XdrCodec, LimitsOfCounts) {
  HostRowList rows;
  EXPECT_TRUE(decode_bytes(xdr_wire<HostRowList>, rows, words({0})).good);
  EXPECT_FALSE(decode_bytes(xdr_wire<HostRowList>, rows, words({1})).good);
  EXPECT_FALSE(decode_bytes(xdr_wire<HostRowList>, rows, words({0xffffffff, 1, 0, 1, 5})).good);
  HostTableKey key;
  EXPECT_TRUE(decode_bytes(xdr_wire<HostTableKey>, key, words({5, 0, 100, 3})).good);
  EXPECT_FALSE(decode_bytes(xdr_wire<HostTableKey>, key, words({5, 0xffffffff, 1, 2, 3})).good);

  for (const std::uint32_t length : {0U, 1U, 254U, 255U, 256U, 259U, 0x80000000U, 0xffffffffU}) {
    Bytes bytes = words({0, 1, 2, 3, 4, length});
    bytes.resize(bytes.size() + 260, 'x');
    append_word(bytes, 1);
    HostControlReply reply;
    const bool good = decode_bytes(xdr_wire<HostControlReply>, reply, bytes).good;
    EXPECT_EQ(good, length <= 255) << length;
    if (good) {
      EXPECT_EQ(reply.hostControlOwner.view(), std::string(length, 'x'));
    }
  }

  // An honest count, but more message than the codec takes.
  const auto most = static_cast<std::uint32_t>(WireReader::kLongestMessage / 4);
  Bytes endless(4 * (most + 4U));
  for (const std::uint32_t bytes : {most - 4, most - 3}) {
    std::ranges::copy(words({5, bytes}), endless.begin());
    EXPECT_EQ(decode_bytes(xdr_wire<HostTableKey>, key, endless).good, bytes == most - 4);
  }
}

// The second batch and all that follow use the buffer of the first, unless it was outsize.
TEST(XdrCodec, RowBuffersAreReused) {
  for_each_wire_type([]<class T>(const char* name) {
    if constexpr (requires(T & value) { value.rows.size(); }) {
      SCOPED_TRACE(name);
      T source;
      WireFiller(1, 100, 100, 20).fill(source);
      const Bytes bytes = encode_bytes(xdr_wire<T>, source);
      T reply;
      const auto allocations_of = [&](const Bytes& message) {
        const std::size_t before = allocations().count;
        EXPECT_TRUE(decode_bytes(xdr_wire<T>, reply, message).good);
        free_value(xdr_wire<T>, reply);
        return allocations().count - before;
      };
      allocations_of(bytes);
      EXPECT_EQ(allocations_of(bytes), 0U);
      EXPECT_EQ(allocations_of(bytes), 0U);
      EXPECT_EQ(allocations_of(words({0})), 0U);
      EXPECT_EQ(allocations_of(bytes), 0U);
      WireFiller(1, 3000, 3000, 20).fill(source);
      const Bytes outsize = encode_bytes(xdr_wire<T>, source);
      ASSERT_GT(outsize.size(), 64 * 1024U);
      allocations_of(outsize);
      EXPECT_GT(allocations_of(bytes), 0U) << "an outsize buffer was kept";
    }
  });
}

// The library's frames are C: memory that runs out must not be an exception there.
TEST(XdrCodec, RunsOutOfMemoryWithoutAnException) {
  for_each_wire_type([]<class T>(const char* name) {
    SCOPED_TRACE(name);
    T value;
    WireFiller(4, 40, 40).fill(value);
    const Bytes bytes = encode_bytes(xdr_wire<T>, value);
    T reply;
    bool good = false;
    bool thrown = false;
    std::size_t after = 0;
    for (; !good && !thrown && after < 1000; ++after) {
      const FailingAllocation failing(after);
      try {
        good = decode_bytes(xdr_wire<T>, reply, bytes).good;
      } catch (...) {
        thrown = true;
      }
    }
    EXPECT_FALSE(thrown) << after;
    EXPECT_EQ(encode_bytes(xdr_wire<T>, reply), bytes);
  });
}

}  // namespace
}  // namespace tally
