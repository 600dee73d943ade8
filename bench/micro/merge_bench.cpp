// The merge engine with rows that lie in memory, against a read-write loop over the same sample.
// Both write to /dev/shm.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "bench/bare_poller.h"
#include "bench/poll_subject.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"

namespace {

using tally::bench::SamplePaths;

constexpr std::uint32_t kRows = 100'000;

// A previous sample of kRows records, 60 seconds old, that goes away in the end.
class Sample {
 public:
  Sample() : stem_("/dev/shm/merge_bench." + std::to_string(getpid())) {
    tally::bench::write_sample(paths().prev, tally::kHost, tally::bench::host_records(kRows, 0),
                               tally::now_seconds() - 60);
  }
  Sample(const Sample&) = delete;
  Sample& operator=(const Sample&) = delete;
  ~Sample() {
    for (const std::string& path : {paths().last, paths().prev, paths().delta}) {
      std::error_code ignored;
      std::filesystem::remove(path, ignored);
    }
  }
  SamplePaths paths() const { return {stem_ + "_last", stem_ + "_prev", stem_ + "_delta"}; }

 private:
  std::string stem_;
};

// Argument: the share of rows, in percent, that the previous sample has as well; the others are new
// now, and as many have gone.
void merge_rows(benchmark::State& state) {
  const Sample sample;
  const auto records = tally::bench::host_records(kRows * 2, 1);
  const std::size_t first = kRows * (100 - static_cast<std::size_t>(state.range(0))) / 100;
  const auto rows = std::span(records).subspan(first * 62, std::size_t{kRows} * 62);
  for (auto _ : state) tally::bench::merge_records(rows, sample.paths());
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(merge_rows)->Arg(100)->Arg(50)->Arg(0)->Unit(benchmark::kMillisecond);

void copy_sample(benchmark::State& state) {
  const Sample sample;
  for (auto _ : state) tally::bench::copy_in_blocks(sample.paths().prev, sample.paths().last);
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(copy_sample)->Unit(benchmark::kMillisecond);

}  // namespace
