// The record cache against the C library's own buffering, per 62-byte record.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include "files/filebuf.h"
#include "files/unique_fd.h"

namespace {

constexpr std::uint32_t kRecordSize = 62;
constexpr std::int64_t kRecords = 10'000;

using Record = std::array<unsigned char, kRecordSize>;

tally::UniqueFd open_or_throw(const char* path) {
  tally::UniqueFd file(open(path, O_WRONLY | O_CLOEXEC));
  if (!file) throw std::runtime_error(path);
  return file;
}

// A file in memory with kRecords records.
tally::UniqueFd record_file() {
  tally::UniqueFd file(memfd_create("records", MFD_CLOEXEC));
  const std::vector<unsigned char> bytes(kRecords * kRecordSize, 7);
  if (write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("memfd");
  }
  return file;
}

void per_record(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kRecords);
}

void filebuf_put_records(benchmark::State& state) {
  const tally::UniqueFd file = open_or_throw("/dev/null");
  const Record record{};
  tally::RecordCache cache;
  for (auto _ : state) {
    tally::filebuf_init(cache, file.get());
    for (std::int64_t i = 0; i < kRecords; ++i) {
      if (!tally::filebuf_put(cache, record.data(), kRecordSize)) state.SkipWithError("put");
    }
    if (!tally::filebuf_flush(cache)) state.SkipWithError("flush");
  }
  per_record(state);
}
BENCHMARK(filebuf_put_records);

void stdio_fwrite_records(benchmark::State& state) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/dev/null", "wb"), std::fclose);
  std::setvbuf(file.get(), nullptr, _IOFBF, tally::kFilebufSize);
  const Record record{};
  for (auto _ : state) {
    for (std::int64_t i = 0; i < kRecords; ++i) {
      if (std::fwrite(record.data(), kRecordSize, 1, file.get()) != 1) state.SkipWithError("write");
    }
    std::fflush(file.get());
  }
  per_record(state);
}
BENCHMARK(stdio_fwrite_records);

void filebuf_getnext_records(benchmark::State& state) {
  const tally::UniqueFd file = record_file();
  tally::RecordCache cache;
  for (auto _ : state) {
    lseek(file.get(), 0, SEEK_SET);
    tally::filebuf_init(cache, file.get());
    std::int64_t count = 0;
    while (const unsigned char* record = tally::filebuf_getnext(cache, kRecordSize)) {
      benchmark::DoNotOptimize(record);
      ++count;
    }
    if (count != kRecords) state.SkipWithError("records lost");
  }
  per_record(state);
}
BENCHMARK(filebuf_getnext_records);

void stdio_fread_records(benchmark::State& state) {
  const tally::UniqueFd descriptor = record_file();
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fdopen(dup(descriptor.get()), "rb"),
                                                   std::fclose);
  std::setvbuf(file.get(), nullptr, _IOFBF, tally::kFilebufSize);
  Record record;
  for (auto _ : state) {
    std::rewind(file.get());
    std::int64_t count = 0;
    while (std::fread(record.data(), kRecordSize, 1, file.get()) == 1) {
      benchmark::DoNotOptimize(record);
      ++count;
    }
    if (count != kRecords) state.SkipWithError("records lost");
  }
  per_record(state);
}
BENCHMARK(stdio_fread_records);

}  // namespace
