// The codec on every type of reply: what the fuzzer demands of any bytes, fed with values of all
// sizes, and what it may cost.
#include "agent/xdr_codec.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/allocations.h"
#include "support/wire_filler.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

// The fuzz target is linked to this program. It ends it when a property does not hold.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tally {
namespace {

// for_each_reply calls function.template operator()<T>(number) for the result of every procedure.
template <class Function>
void for_each_reply(Function function) {
  std::uint8_t number = 0;
  for_each_procedure([&]<class Procedure>(const Procedure&, const auto& /*theirs*/) {
    SCOPED_TRACE(Procedure::number);
    function.template operator()<typename Procedure::Result>(number++);
  });
}

// The bytes of a random value, with up to so many rows.
template <class T>
Bytes encoded(unsigned seed, std::uint32_t least, std::uint32_t most, std::uint32_t longest = 60) {
  T value;
  WireFiller(seed, least, most, longest).fill(value);
  return encode_bytes(xdr_wire<T>, value);
}

void check(std::uint8_t number, Bytes reply, std::size_t more = 0) {
  reply.insert(reply.begin(), number);
  reply.insert(reply.end(), more, 'x');
  LLVMFuzzerTestOneInput(reply.data(), reply.size());
}

TEST(XdrCodec, HoldsThePropertyOfTheFuzzer) {
  for_each_reply([]<class T>(std::uint8_t number) {
    for (unsigned seed = 1; seed <= 30; ++seed) check(number, encoded<T>(seed, 0, 4), seed % 9);
    for (const std::uint32_t rows : {80U, 100U}) {  // longer than the codec's window
      check(number, encoded<T>(1, rows, rows));
    }
    Bytes part = encoded<T>(3, 1, 3);
    for (; !part.empty(); part.pop_back()) check(number, part);
  });
}

// Any word may be a count, and a hostile one must cost no more than the bytes that came with it.
TEST(XdrCodec, HostileCountsCostNothing) {
  for_each_reply([]<class T>(std::uint8_t number) {
    const Bytes good = encoded<T>(5, 2, 3);
    for (std::size_t at = 0; at < good.size(); at += 4) {
      for (const std::uint32_t word : {0xffffffffU, 0x7f7f7f7fU, 0x40404040U, 256U, 255U}) {
        Bytes bytes = good;
        for (std::size_t i = 0; i < 4; ++i) {
          bytes[at + i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
        }
        T part;
        const std::size_t before = allocations().bytes;
        (void)decode_bytes(xdr_wire<T>, part, bytes);
        ASSERT_LT(allocations().bytes - before, 4096 + 16 * bytes.size()) << at;
        check(number, bytes, 1200);
      }
    }
  });
}

// An honest count, but more message than the codec takes.
TEST(XdrCodec, LongestMessage) {
  const auto most = static_cast<std::uint32_t>(WireReader::kLongestMessage / 4);
  for (const std::uint32_t bytes : {most - 4, most - 3}) {
    Bytes endless;
    for (const std::uint32_t word : {5U, bytes}) append_word(endless, word);
    endless.resize(4 * (most + 4U));
    HostTableKey key;
    EXPECT_EQ(decode_bytes(xdr_wire<HostTableKey>, key, endless).good, bytes == most - 4);
  }
}

// The library's frames are C: memory that runs out must not be an exception there.
TEST(XdrCodec, RunsOutOfMemoryWithoutAnException) {
  for_each_reply([]<class T>(std::uint8_t /*number*/) {
    const Bytes bytes = encoded<T>(4, 40, 40);
    T reply;
    bool good = false;
    for (std::size_t after = 0; !good && after < 1000; ++after) {
      const FailingAllocation failing(after);
      ASSERT_NO_THROW(good = decode_bytes(xdr_wire<T>, reply, bytes).good) << after;
    }
    EXPECT_EQ(encode_bytes(xdr_wire<T>, reply), bytes);
  });
}

}  // namespace
}  // namespace tally
