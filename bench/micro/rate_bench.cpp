// The rate rule in extended precision, and the host type's record operations, per record of seven
// counters. The peer divides plain doubles, which is not precise enough for the daemon.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "agent/mac_types.h"
#include "bench/poll_subject.h"

namespace {

constexpr std::uint32_t kRows = 10'000;
constexpr std::uint32_t kSeconds = 60;

struct Samples {
  std::vector<unsigned char> before = tally::bench::host_records(kRows, 0);
  std::vector<unsigned char> now = tally::bench::host_records(kRows, 1);
  unsigned char out[tally::kMaxRecordSize] = {};
};

template <class Operation>
void for_each_record(benchmark::State& state, Operation operation) {
  Samples samples;
  const std::size_t size = tally::host_ops.record_size;
  for (auto _ : state) {
    for (std::size_t at = 0; at < samples.now.size(); at += size) {
      operation(samples.before.data() + at, samples.now.data() + at, samples.out);
      benchmark::DoNotOptimize(samples.out);
    }
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}

void calc_delta_records(benchmark::State& state) {
  for_each_record(
      state, [](const unsigned char* before, const unsigned char* now, unsigned char* out) {
        benchmark::DoNotOptimize(tally::host_ops.calc_delta(before, now, out, kSeconds));
      });
}
BENCHMARK(calc_delta_records);

void calc_rate_records(benchmark::State& state) {
  for_each_record(state, [](const unsigned char*, const unsigned char* now, unsigned char* out) {
    benchmark::DoNotOptimize(tally::host_ops.calc_rate(now, out, kSeconds));
  });
}
BENCHMARK(calc_rate_records);

void compare_records(benchmark::State& state) {
  for_each_record(state, [](const unsigned char* before, const unsigned char* now, unsigned char*) {
    benchmark::DoNotOptimize(tally::host_ops.compare(before, now));
  });
}
BENCHMARK(compare_records);

void plain_double_records(benchmark::State& state) {
  for_each_record(state,
                  [](const unsigned char* before, const unsigned char* now, unsigned char* out) {
                    double a[7];
                    double b[7];
                    std::memcpy(a, before + 6, sizeof a);
                    std::memcpy(b, now + 6, sizeof b);
                    for (int i = 0; i < 7; ++i) b[i] = (b[i] - a[i]) / kSeconds;
                    std::memcpy(out, now, 6);
                    std::memcpy(out + 6, b, sizeof b);
                  });
}
BENCHMARK(plain_double_records);

}  // namespace
