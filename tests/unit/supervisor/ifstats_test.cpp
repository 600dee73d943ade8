// The delta rule of the interfaces: what differs from the agent's rates.
#include "supervisor/ifstats.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "support/syslog_capture.h"

namespace tally {
namespace {

constexpr std::size_t kRecord = 120;
constexpr std::size_t kSpeed = 24;
constexpr std::size_t kZero = 32;

using Record = std::vector<unsigned char>;
using Fields = std::vector<std::pair<std::size_t, double>>;  // offset, value

// At an odd address, as records lie in a cache.
Record record(const Fields& fields) {
  Record bytes(kRecord + 1);
  const std::uint32_t key[] = {7, 4};
  std::memcpy(bytes.data() + 1, key, sizeof key);
  std::memcpy(bytes.data() + 9, "ge-1", 4);
  for (const auto& [offset, value] : fields) {
    std::memcpy(bytes.data() + 1 + offset, &value, sizeof value);
  }
  return bytes;
}

TEST(IfaceCalcDelta, RatesAndUtilisation) {
  constexpr double k32 = 4294967295.0;
  const struct {
    const char* label;
    Fields prev;
    Fields last;
    std::uint32_t interval;
    Fields delta;
    int result;
  } cases[] = {
      {"nothing moved", {{40, 5}}, {{40, 5}, {kSpeed, 10}}, 10, {}, 0},
      {"every counter",
       {},
       {{40, 10},
        {48, 20},
        {56, 30},
        {64, 40},
        {72, 50},
        {80, 60},
        {88, 70},
        {96, 80},
        {104, 90},
        {112, 100}},
       10,
       {{40, 1},
        {48, 2},
        {56, 3},
        {64, 4},
        {72, 5},
        {80, 6},
        {88, 7},
        {96, 8},
        {104, 9},
        {112, 10}},
       1},
      {"reset: the raw count", {{48, 1000}}, {{48, 10}}, 5, {{48, 10}}, 1},
      {"64-bit wrap", {{40, 0x1p64 - 4096}}, {{40, 4096}}, 2, {{40, 4096}}, 1},
      {"the last bound of a reset", {{40, 0x1p63}}, {{40, 9}}, 2, {{40, 9}}, 1},
      {"32-bit wrap, one too few", {{88, 4294967000.0}}, {{88, 100}}, 10, {{88, 39.5}}, 1},
      {"a 64-bit count above 32 bits", {{112, 3 * k32}}, {{112, 0}}, 1, {{112, -2 * k32}}, 1},
      {"half used",
       {},
       {{40, 625}, {48, 1250}, {kSpeed, 1000}},
       10,
       {{40, 62.5}, {48, 125}, {kSpeed, 50}, {kZero, 100}},
       1},
      {"more than the line holds",
       {},
       {{40, 1e9}, {kSpeed, 1000}},
       1,
       {{40, 1e9}, {kSpeed, 100}},
       1},
      {"no speed", {}, {{40, 1e9}}, 1, {{40, 1e9}}, 1},
      {"negative interval as unsigned",
       {},
       {{40, k32}, {kSpeed, 8}},
       0xFFFFFFFFU,
       {{40, 1}, {kSpeed, 100}},
       1},
  };
  for (const auto& test : cases) {
    const Record prev = record(test.prev);
    const Record last = record(test.last);
    Record out(kRecord + 1);
    EXPECT_EQ(ifacecalc_delta(prev.data() + 1, last.data() + 1, out.data() + 1, test.interval),
              test.result)
        << test.label;
    EXPECT_EQ(out, record(test.delta)) << test.label;
  }
  EXPECT_TRUE(take_log().empty());
}

TEST(IfaceCalcDelta, OddArgumentsAreLogged) {
  const Record one = record({{40, 8}});
  Record out(kRecord + 1);
  EXPECT_EQ(ifacecalc_delta(record({}).data() + 1, one.data() + 1, out.data() + 1, 0), 1);
  EXPECT_EQ(out, record({{40, 8}}));
  EXPECT_EQ(ifacecalc_delta(nullptr, one.data(), out.data(), 1), -1);
  EXPECT_EQ(ifacecalc_delta(one.data(), nullptr, out.data(), 1), -1);
  EXPECT_EQ(ifacecalc_delta(one.data(), one.data(), nullptr, 1), -1);
  const auto null_pointer = warning_line("ifacecalc_delta: NULL pointer!");
  EXPECT_EQ(take_log(), (std::vector{debug_line("iface_calc_delta() found a 0-length interval."),
                                     null_pointer, null_pointer, null_pointer}));
}

}  // namespace
}  // namespace tally
