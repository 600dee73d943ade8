#include "bench/rrd_files.h"

#include <rrd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "bench/sample_table.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kCounters = 7;
constexpr unsigned long kStep = 60;
constexpr long kStart = 1'700'000'000;

[[noreturn]] void fail(const std::string& path) {
  const std::string reason = rrd_get_error();
  rrd_clear_error();
  throw std::runtime_error(path + ": " + reason);
}

}  // namespace

RrdFiles::RrdFiles(std::string directory, std::uint32_t rows) : directory_(std::move(directory)) {
  std::filesystem::create_directory(directory_);
  // All files start the same, so one is made and then copied.
  std::vector<std::string> sources;
  for (std::uint32_t field = 0; field < kCounters; ++field) {
    sources.push_back("DS:counter" + std::to_string(field) + ":COUNTER:120:0:U");
  }
  sources.emplace_back("RRA:AVERAGE:0.5:1:2");
  std::vector<const char*> arguments;
  arguments.reserve(sources.size());
  for (const std::string& source : sources) arguments.push_back(source.c_str());
  const std::string first = directory_ + "/0.rrd";
  if (rrd_create_r(first.c_str(), kStep, kStart, static_cast<int>(arguments.size()),
                   arguments.data()) != 0) {
    fail(first);
  }
  for (std::uint32_t row = 0; row < rows; ++row) {
    paths_.push_back(directory_ + "/" + std::to_string(row) + ".rrd");
    if (row > 0) std::filesystem::copy_file(first, paths_.back());
  }
}

RrdFiles::~RrdFiles() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void RrdFiles::update() {
  ++epoch_;
  char text[256];
  const char* arguments[] = {text};
  for (std::uint32_t row = 0; row < paths_.size(); ++row) {
    int length = std::snprintf(text, sizeof text, "%ld", kStart + long{epoch_} * long{kStep});
    for (std::uint32_t field = 0; field < kCounters; ++field) {
      length +=
          std::snprintf(text + length, sizeof text - static_cast<std::size_t>(length), ":%llu",
                        static_cast<unsigned long long>(counter_value(row, field, epoch_)));
    }
    if (rrd_update_r(paths_[row].c_str(), nullptr, 1, arguments) != 0) fail(paths_[row]);
  }
}

}  // namespace tally::bench
