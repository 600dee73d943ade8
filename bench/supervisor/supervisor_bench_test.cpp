// The daemon's files hold what the canned supervisor's arithmetic says. To be run in
// scripts/sandbox. That all contenders make the same exchanges, supervisor_ratio checks itself.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/supervisor/contenders.h"
#include "daemon/base/collection_types.h"
#include "files/file_format.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kRows = 130;  // numbers and names of one and of two bytes

std::string delta_file(std::uint32_t type) {
  std::ifstream file(collection_path(type, 0, FileKind::delta).text, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <class Number>
Number number_at(const std::string& bytes, std::size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

// What a record of a kind has where, and from which columns its rates come.
struct Layout {
  std::uint32_t type;
  std::size_t size;
  std::size_t rates;
  bool newest_first;
  std::uint64_t (*counter)(std::uint32_t row, std::uint32_t column, std::uint32_t epoch);
  std::vector<std::vector<std::uint32_t>> columns;  // summed up
};

const Layout kLayouts[] = {
    {kEtherStats,
     172,
     36,
     true,
     ether_counter,
     {{3},
      {4},
      {5},
      {6},
      {7},
      {8},
      {9},
      {10},
      {11},
      {12},
      {13},
      {14},
      {15},
      {16},
      {17},
      {18},
      {19}}},
    {kIfStats,
     120,
     40,
     false,
     if_counter,
     {{6}, {10}, {7}, {11}, {8, 9}, {12, 13}, {13}, {19}, {14}, {20}}},
};

TEST(SupervisorBench, PollsWriteTheRatesOfTheCannedCounters) {
  CannedSupervisor supervisor(kRows);
  for (const Layout& layout : kLayouts) {
    SCOPED_TRACE(type_stem(layout.type));
    PolledKind kind(supervisor.port(), {layout.type, kRows, true, false});
    kind.run();
    supervisor.advance();
    kind.prepare();
    kind.run();
    const std::string file = delta_file(layout.type);
    ASSERT_EQ(file.size(), sizeof(FileHeader) + kRows * layout.size);
    const auto interval = number_at<std::int32_t>(file, 0);
    EXPECT_NEAR(interval, PolledKind::kInterval, 2);
    for (std::uint32_t i = 0; i < kRows; ++i) {
      const std::uint32_t row = layout.newest_first ? kRows - i : i + 1;
      const std::string record = file.substr(sizeof(FileHeader) + i * layout.size, layout.size);
      EXPECT_EQ(number_at<std::uint32_t>(record, 0), row);
      EXPECT_NE(record.find(if_name(row)), std::string::npos);
      for (std::size_t field = 0; field < layout.columns.size(); ++field) {
        double step = 0;
        for (const std::uint32_t column : layout.columns[field]) {
          step +=
              static_cast<double>(layout.counter(row, column, 1) - layout.counter(row, column, 0));
        }
        EXPECT_EQ(number_at<double>(record, layout.rates + 8 * field), step / interval);
      }
    }
  }
}

}  // namespace
}  // namespace tally::bench
