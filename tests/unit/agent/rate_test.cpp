// The two ways to divide, and what no poll does with the operations of the types. That the rates
// follow the rule in every counter is shown end to end.
#include "agent/rate.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "agent/type_facts.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

// Quotients that are rounded to 64 bits and then to double: rounded at once they would be others.
TEST(Rate, IsRoundedTwice) {
  const struct {
    std::uint32_t interval;
    double last;
    double rate;
  } cases[] = {
      {4294967236u, 0x1.8fbf48d57ef03p+52, 0x1.8fbf49332fc56p+20},
      {65521u, 0x1.6157b610343a1p+52, 0x1.616c6b6a7f778p+36},
      {65521u, 0x1.b67881c0f9538p+49, 0x1.b69234520a222p+33},
      {4294967236u, 0x1.d4443ea35442ap+52, 0x1.d4443f1114416p+20},
  };
  for (const auto& [interval, last, rate] : cases) {
    EXPECT_EQ(rate_of_new(last, interval), rate);
    EXPECT_EQ(rate_between(0, last, interval), rate);
  }
}

// Where plain division is taken, it is bit for bit the extended one.
TEST(Rate, PlainDivisionIsExact) {
  std::mt19937_64 random(2);
  for (int i = 0; i < 300'000; ++i) {
    const auto interval = static_cast<std::uint32_t>(1 + random() % (kPlainDivisionBelow - 1));
    const double last = static_cast<double>(random() >> (11 + random() % 40));
    const double prev =
        static_cast<double>(static_cast<std::uint64_t>(last) >> (1 + random() % 60));
    unsigned char before[sizeof prev];
    unsigned char now[sizeof last];
    unsigned char out[sizeof last];
    std::memcpy(before, &prev, sizeof prev);
    std::memcpy(now, &last, sizeof last);
    double rate = 0;
    rates_between<1>(before, now, out, interval);
    std::memcpy(&rate, out, sizeof rate);
    ASSERT_EQ(rate, rate_between(prev, last, interval));
    rates_of_new<1>(&last, &rate, interval);
    ASSERT_EQ(rate, rate_of_new(last, interval));
  }
}

TEST(Rate, LogsNullArgumentsAndEmptyIntervals) {
  for (const TypeFacts& type : kTypeFacts) {
    const std::string name = type.name;
    SCOPED_TRACE(name);
    std::string sevens(type.key_size, 'k');
    for (std::uint32_t i = 0; i < type.counters; ++i) sevens += bytes_of(7.0);
    const auto* row = reinterpret_cast<const unsigned char*>(sevens.data());
    unsigned char out[kMaxRecordSize];
    take_log();
    EXPECT_EQ(type.ops().calc_delta(nullptr, row, out, 1), -1);
    EXPECT_EQ(type.ops().calc_delta(row, nullptr, out, 1), -1);
    EXPECT_EQ(type.ops().calc_delta(row, row, nullptr, 0), -1);
    EXPECT_EQ(take_log(),
              std::vector(3, warning_line(type.delta_null + std::string(": NULL pointer!"))));
    EXPECT_EQ(type.ops().calc_rate(nullptr, out, 1), 0);
    EXPECT_EQ(type.ops().calc_rate(row, nullptr, 0), 0);
    EXPECT_EQ(take_log(), std::vector(2, warning_line(type.rate_null +
                                                      std::string("_calc_rate: NULL pointer!"))));
    EXPECT_EQ(type.ops().calc_delta(row, row, out, 0), 0);
    EXPECT_EQ(type.ops().calc_rate(row, out, 0), 1);
    EXPECT_EQ(std::memcmp(out, row, type.ops().record_size), 0);
    EXPECT_EQ(take_log(),
              (std::vector{debug_line(type.delta_zero +
                                      std::string("_calc_delta() found a 0-length interval.")),
                           debug_line(name + "_calc_rate() found a 0-length interval.")}));
  }
}

}  // namespace
}  // namespace tally
