// The rate rule, and the operations of all types that use it.
#include "agent/rate.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "agent/type_facts.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

struct RateCase {
  std::uint32_t interval;
  double prev;
  double last;
  double rate;
  double rate_of_new;
};

constexpr RateCase kCases[] = {
#include "rate_cases.inc"
};

// A record at an odd address, as it may lie in a cache.
class Record {
 public:
  explicit Record(const TypeFacts& type, char key = 'k') : type_(type), bytes_(1 + 68, '#') {
    std::memset(bytes_.data() + 1, key, type.key_size);
  }
  unsigned char* get() { return reinterpret_cast<unsigned char*>(bytes_.data() + 1); }
  void set(std::uint32_t counter, double value) {
    std::memcpy(get() + type_.key_size + 8 * counter, &value, sizeof value);
  }
  double at(std::uint32_t counter) {
    double value;
    std::memcpy(&value, get() + type_.key_size + 8 * counter, sizeof value);
    return value;
  }
  // The key, and what lies behind the record.
  std::string frame() const {
    return bytes_.substr(1, type_.key_size) + bytes_.substr(1 + type_.ops().record_size);
  }

 private:
  const TypeFacts& type_;
  std::string bytes_;
};

TEST(Rate, FollowsTheRuleInEveryCounterOfEveryType) {
  for (const TypeFacts& type : kTypeFacts) {
    SCOPED_TRACE(type.name);
    for (std::size_t i = 0; i < std::size(kCases); ++i) {
      const RateCase& test = kCases[i];
      const auto counter = static_cast<std::uint32_t>(i % type.counters);  // the others stand still
      SCOPED_TRACE(i);
      Record prev(type, 'p');
      Record last(type);
      Record out(type, 'o');
      for (std::uint32_t other = 0; other < type.counters; ++other) {
        prev.set(other, 5);
        last.set(other, 5);
      }
      prev.set(counter, test.prev);
      last.set(counter, test.last);
      ASSERT_EQ(type.ops().calc_delta(prev.get(), last.get(), out.get(), test.interval),
                test.rate != 0);
      EXPECT_EQ(out.frame(), last.frame());
      for (std::uint32_t other = 0; other < type.counters; ++other) {
        EXPECT_EQ(out.at(other), other == counter ? test.rate : 0);
      }
      Record fresh(type, 'o');
      ASSERT_EQ(type.ops().calc_rate(last.get(), fresh.get(), test.interval), 1);
      EXPECT_EQ(fresh.frame(), last.frame());
      EXPECT_EQ(fresh.at(counter), test.rate_of_new);
    }
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
    SCOPED_TRACE(type.name);
    Record prev(type);
    Record last(type);
    Record out(type);
    for (std::uint32_t i = 0; i < type.counters; ++i) {
      prev.set(i, 7);
      last.set(i, 7);
    }
    take_log();
    EXPECT_EQ(type.ops().calc_delta(nullptr, last.get(), out.get(), 1), -1);
    EXPECT_EQ(type.ops().calc_delta(prev.get(), nullptr, out.get(), 1), -1);
    EXPECT_EQ(type.ops().calc_delta(prev.get(), last.get(), nullptr, 0), -1);
    EXPECT_EQ(take_log(), std::vector(3, warning_line(type.delta_null)));
    EXPECT_EQ(type.ops().calc_rate(nullptr, out.get(), 1), 0);
    EXPECT_EQ(type.ops().calc_rate(last.get(), nullptr, 0), 0);
    EXPECT_EQ(take_log(), std::vector(2, warning_line(type.rate_null)));
    EXPECT_EQ(type.ops().calc_delta(prev.get(), last.get(), out.get(), 0), 0);
    EXPECT_EQ(type.ops().calc_rate(last.get(), out.get(), 0), 1);
    EXPECT_EQ(out.at(0), 7);
    EXPECT_EQ(take_log(), (std::vector{debug_line(type.delta_zero), debug_line(type.rate_zero)}));
  }
}

}  // namespace
}  // namespace tally
