// Decoding a reply of 100 host rows: the daemon's codec against rpcgen's, per row.
//
// Both read from libtirpc's record stream. A large receive buffer holds the whole reply, so that
// rows are decoded in place; a small one makes nearly every row cross its end.
#include <benchmark/benchmark.h>
#include <minitapd/tapd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "agent/mac_row_types.h"
#include "agent/xdr_codec.h"
#include "bench/sample_table.h"
#include "bench/wire_bytes.h"

namespace {

using namespace tally::bench;

constexpr std::uint32_t kRows = 100;
constexpr u_int kLargeBuffer = 65536;
constexpr u_int kSmallBuffer = 100;

// A stream of one reply, again and again.
class ReplyStream {
 public:
  explicit ReplyStream(u_int buffer) {
    const SampleTable table(TableKind::host, 1, kRows);
    const auto rows = table.wire(0, kRows);
    record_.resize(8);
    put_u32(record_.data(), 0x8000'0000 | static_cast<std::uint32_t>(rows.size() + 4));
    put_u32(record_.data() + 4, kRows);
    record_.insert(record_.end(), rows.begin(), rows.end());
    xdrrec_create(&stream_, buffer, buffer, this, read, nullptr);
    stream_.x_op = XDR_DECODE;
  }
  ReplyStream(const ReplyStream&) = delete;
  ReplyStream& operator=(const ReplyStream&) = delete;
  ~ReplyStream() { XDR_DESTROY(&stream_); }

  XDR* next_record() {
    xdrrec_skiprecord(&stream_);
    return &stream_;
  }

 private:
  // Gives out what is left of the record, as a socket does.
  static int read(void* self, void* to, int most) {
    auto& stream = *static_cast<ReplyStream*>(self);
    const std::size_t count =
        std::min(static_cast<std::size_t>(most), stream.record_.size() - stream.at_);
    std::memcpy(to, stream.record_.data() + stream.at_, count);
    stream.at_ = (stream.at_ + count) % stream.record_.size();
    return static_cast<int>(count);
  }

  XDR stream_{};
  std::vector<std::uint8_t> record_;
  std::size_t at_ = 0;
};

template <class Reply, class Routine, class Count>
void decode(benchmark::State& state, u_int buffer, Routine routine, Count count) {
  ReplyStream stream(buffer);
  for (auto _ : state) {
    Reply reply{};
    if (!routine(stream.next_record(), &reply) || count(reply) != kRows) {
      state.SkipWithError("not decoded");
      break;
    }
    xdr_free(reinterpret_cast<xdrproc_t>(+routine), &reply);
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}

void codec(benchmark::State& state, u_int buffer) {
  decode<tally::HostRowList>(state, buffer, &tally::xdr_wire<tally::HostRowList>,
                             [](const auto& reply) { return reply.rows.size(); });
}
void rpcgen(benchmark::State& state, u_int buffer) {
  decode<tapd_host_rows>(state, buffer, &xdr_tapd_host_rows,
                         [](const auto& reply) { return reply.rows.rows_len; });
}
BENCHMARK_CAPTURE(codec, in_place, kLargeBuffer);
BENCHMARK_CAPTURE(rpcgen, in_place, kLargeBuffer);
BENCHMARK_CAPTURE(codec, across_buffers, kSmallBuffer);
BENCHMARK_CAPTURE(rpcgen, across_buffers, kSmallBuffer);

}  // namespace
