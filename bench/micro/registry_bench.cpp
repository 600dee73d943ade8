// The registry with 10 and with 10,000 collections, none of them due: what a viewing message does
// to the list, and a pass of the poll task that finds nothing to do.
#include <benchmark/benchmark.h>

#include <deque>
#include <random>

#include "daemon/base/thread_entry.h"
#include "daemon/registry.h"

namespace {

// A registry with collections of our own, due an hour from now. No files are touched.
class Collections {
 public:
  explicit Collections(std::int64_t count) {
    registry.reset();
    const auto due = static_cast<std::int32_t>(std::time(nullptr)) + 3600;
    tally::RegistryLock lock(registry);
    for (std::int64_t i = 0; i < count; ++i) {
      auto& record = records.emplace_back();
      record.index = static_cast<std::uint32_t>(i + 1);
      record.schedule.next_due = due;
      registry.insert_in_order(record);
    }
  }

  tally::ThreadEntry poll_task;
  tally::Registry registry{poll_task};
  std::deque<tally::CollectionRecord> records;
};

void registry_viewing(benchmark::State& state) {
  Collections collections(state.range(0));
  std::mt19937 random(1);
  std::uniform_int_distribution<std::uint32_t> any(1, static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    tally::RegistryLock lock(collections.registry);
    tally::CollectionRecord* record = collections.registry.find(lock, 0, any(random));
    lock.retake();
    collections.registry.unlink(*record);
    collections.registry.insert_in_order(*record);
  }
}
BENCHMARK(registry_viewing)->Arg(10)->Arg(10'000);

void registry_idle_pass(benchmark::State& state) {
  Collections collections(state.range(0));
  for (auto _ : state) {
    collections.registry.begin_pass();
    if (collections.registry.sweep(60, [](const tally::CollectionRecord&) { return true; }) != 0) {
      state.SkipWithError("something was due");
    }
  }
}
BENCHMARK(registry_idle_pass)->Arg(10)->Arg(10'000);

}  // namespace
