// The codec on every type of reply: what the fuzzer demands of any bytes, fed with the replies of
// its corpus, whole and in part, and what it may cost.
#include "agent/xdr_codec.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "support/allocations.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

// The fuzz target is linked to this program. It ends it when a property does not hold.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tally {
namespace {

// for_each_message calls function.template operator()<T>(number, reply) for the replies of the
// fuzzer's corpus, which has some of every procedure.
template <class Function>
void for_each_message(Function function) {
  for (const auto& file : std::filesystem::directory_iterator(XDR_CORPUS)) {
    SCOPED_TRACE(file.path());
    std::ifstream in(file.path(), std::ios::binary);
    const Bytes input{std::istreambuf_iterator<char>(in), {}};
    int number = input.at(0) % 24;
    for_each_procedure([&]<class Procedure>(const Procedure&, const auto& /*theirs*/) {
      if (number-- != 0) return;
      function.template operator()<typename Procedure::Result>(
          input[0], Bytes(input.begin() + 1, input.end()));
    });
  }
}

// The rows of a reply, 25 times; another reply stays as it is.
template <class T>
Bytes with_many_rows(const Bytes& reply) {
  Bytes many = reply;
  if constexpr (requires(T value) { value.rows; }) {
    many[3] = static_cast<std::uint8_t>(25 * reply[3]);
    for (int i = 1; i < 25; ++i) many.insert(many.end(), reply.begin() + 4, reply.end());
  }
  return many;
}

void check(std::uint8_t number, Bytes reply, std::size_t more = 0) {
  reply.insert(reply.begin(), number);
  reply.insert(reply.end(), more, 'x');
  LLVMFuzzerTestOneInput(reply.data(), reply.size());
}

TEST(XdrCodec, HoldsThePropertyOfTheFuzzer) {
  for_each_message([]<class T>(std::uint8_t number, Bytes reply) {
    check(number, with_many_rows<T>(reply), reply.size() % 9);  // longer than the codec's window
    for (; !reply.empty(); reply.pop_back()) check(number, reply);
  });
}

// Replies of which a few words are random, as many as PEER_ROUNDS says. The property includes
// rpcgen's reading.
TEST(Peer, RpcgenAgrees) {
  std::vector<Bytes> replies;
  for_each_message([&]<class T>(std::uint8_t number, Bytes reply) {
    reply.insert(reply.begin(), number);
    replies.push_back(std::move(reply));
  });
  const char* const wanted = std::getenv("PEER_ROUNDS");
  const unsigned long rounds = wanted == nullptr ? 3000 : std::stoul(wanted);
  for (unsigned round = 0; round < rounds; ++round) {
    std::mt19937 random(round);
    Bytes reply = replies[random() % replies.size()];
    for (std::size_t words = 1 + random() % 8; words > 0 && reply.size() > 4; --words) {
      std::generate_n(
          reply.begin() + 1 + static_cast<std::ptrdiff_t>(random() % (reply.size() / 4) * 4), 4,
          [&] { return static_cast<std::uint8_t>(random() >> (random() % 25)); });
    }
    LLVMFuzzerTestOneInput(reply.data(), reply.size());
  }
}

// Any word may be a count, and a hostile one must cost no more than the bytes that came with it.
TEST(XdrCodec, HostileCountsCostNothing) {
  for_each_message([]<class T>(std::uint8_t number, const Bytes& good) {
    for (std::size_t at = 0; at < good.size(); at += 4) {
      for (const std::uint32_t word : {0xffffffffU, 0x7f7f7f7fU, 0x40404040U, 256U, 255U}) {
        Bytes bytes = good;
        for (std::size_t i = 0; i < 4; ++i) {
          bytes[at + i] = static_cast<std::uint8_t>(word >> (24 - 8 * i));
        }
        T part;
        allocations = {};
        (void)decode_bytes(xdr_wire<T>, part, bytes);
        ASSERT_LT(allocations.bytes, 4096 + 16 * bytes.size()) << at;
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

// Static results live for years: what one outsize reply or long address took must not stay.
TEST(XdrCodec, GivesTheMemoryOfABrokenReplyBack) {
  const auto used = mallinfo2().uordblks;
  ByteList address;
  address.resize(60'000);
  address = ByteList{};
  EXPECT_LT(mallinfo2().uordblks, used + 10'000);
  address.resize(60'000);
  address.resize(6);
  WireRows<std::array<char, 60>> rows;
  for (int row = 0; row < 1000; ++row) rows.next_row();
  rows.keep_buffer(false);
  rows.clear();
  EXPECT_LT(mallinfo2().uordblks, used + 10'000);
}

// The library's frames are C: memory that runs out must not be an exception there.
TEST(XdrCodec, RunsOutOfMemoryWithoutAnException) {
  for_each_message([]<class T>(std::uint8_t /*number*/, const Bytes& reply) {
    const Bytes bytes = with_many_rows<T>(reply);
    T value;
    bool good = false;
    for (std::size_t failing = 1; !good && failing < 1000; ++failing) {
      allocations = {failing};
      ASSERT_NO_THROW(good = decode_bytes(xdr_wire<T>, value, bytes).good) << failing;
    }
    allocations = {};
    EXPECT_EQ(encode_bytes(xdr_wire<T>, value), bytes);
  });
}

}  // namespace
}  // namespace tally
