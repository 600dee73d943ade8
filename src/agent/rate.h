// The rate rule of the agent's 64-bit counters: the only division in this room.
//
// Counters are doubles that were converted from unsigned 64-bit numbers. Rates are rounded as on an
// x86 processor's 80-bit registers: every step to 64 significant bits, ties to even, and the result
// once more to double. They are computed in whole numbers, so that every machine writes the same
// bytes.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tally {

__extension__ using Uint128 = unsigned __int128;

// The largest count, and the largest difference of two: as a double, 2^64 - 1 is 2^64.
inline constexpr Uint128 kLargestCount = Uint128{1} << 64;

// whole_count returns a counter as a whole number. A damaged file may hold any double: one outside
// the range of counts becomes the nearest count, a fraction is cut off, and NaN becomes 0.
inline Uint128 whole_count(double counter) {
  if (counter >= 0x1p64) return kLargestCount;
  return counter > 0 ? static_cast<std::uint64_t>(counter) : 0;
}

// rate_of_change returns change / seconds, rounded to 64 significant bits and then to the 53 bits
// of a double. `change` is at most kLargestCount, `seconds` is not 0.
inline double rate_of_change(Uint128 change, std::uint32_t seconds) {
  if (change == 0) return 0;
  if (change == kLargestCount) return 2 * rate_of_change(change / 2, seconds);
  // Both numbers are shifted until their top bit is set; with 63 or 64 more bits, the dividend then
  // gives a quotient of exactly 64. Rounding it up never carries into a 65th, because the lower
  // half of the divisor is 0. Nor is there a tie: an odd quotient of 65 bits times the divisor has
  // more than 64 significant bits, and the dividend has not.
  const int change_shift = std::countl_zero(static_cast<std::uint64_t>(change));
  const int seconds_shift = std::countl_zero(std::uint64_t{seconds});
  const std::uint64_t dividend = static_cast<std::uint64_t>(change) << change_shift;
  const std::uint64_t divisor = std::uint64_t{seconds} << seconds_shift;
  const int more = dividend < divisor ? 64 : 63;
  const Uint128 long_dividend = Uint128{dividend} << more;
  auto quotient = static_cast<std::uint64_t>(long_dividend / divisor);
  const auto rest = static_cast<std::uint64_t>(long_dividend % divisor);
  if (rest > divisor - rest) ++quotient;
  const Uint128 scale = Uint128{1} << (more + change_shift - seconds_shift);
  return static_cast<double>(quotient) / static_cast<double>(scale);
}

// rate_between returns the rate, per second, between two samples of a counter:
//   - it went up or stayed: the difference over the interval;
//   - it went down from above 2^63: it wrapped, and 2^64 is added first;
//   - it went down from elsewhere: it was reset, and the rate is the raw new count, undivided.
inline double rate_between(double prev, double last, std::uint32_t seconds) {
  if (last >= prev) return rate_of_change(whole_count(last) - whole_count(prev), seconds);
  if (prev > 0x1p63) {
    // The sum has 65 bits and is rounded to 64: an odd one lies halfway between two even numbers
    // and becomes the one that is a multiple of 4.
    Uint128 sum = whole_count(last) + kLargestCount;
    if (sum % 2 != 0) sum = (sum + 1) / 4 * 4;
    return rate_of_change(sum - whole_count(prev), seconds);
  }
  return last;
}

// Below this interval a double divided by a whole number gives the same double whether it is
// rounded once or, on the way, to 64 bits. The results differ only if the 64-bit rounding moves the
// quotient n / d onto the middle m between two neighbouring doubles. With u the distance of these
// doubles, n and d * m are whole multiples of u / 2 (n has 53 bits, and n >= d * 2^52 * u), so n /
// d is at least u / (2 d) away from m. The 64-bit rounding moves it by u / 2^12 at most: for d <
// 2^11 it cannot reach m. Plain division is many times as fast, and takes two counters at a time.
inline constexpr std::uint32_t kPlainDivisionBelow = 2048;

// Two counters that the processor compares, subtracts and divides at once. An odd one is paired
// with a zero.
using CounterPair [[gnu::vector_size(2 * sizeof(double))]] = double;

template <std::size_t kCount>
CounterPair load_counters(const unsigned char* from) {
  CounterPair pair = {};
  std::memcpy(&pair, from, kCount * sizeof(double));
  return pair;
}
template <std::size_t kCount>
void store_counters(unsigned char* to, CounterPair pair) {
  std::memcpy(to, &pair, kCount * sizeof(double));
}

// exact_rates_between does the work of rates_between for any counters and any interval.
template <std::size_t kCounters>
[[gnu::noinline]] bool exact_rates_between(const unsigned char* prev, const unsigned char* last,
                                           unsigned char* rates, std::uint32_t interval) {
  double before[kCounters];
  double now[kCounters];
  std::memcpy(before, prev, sizeof before);
  std::memcpy(now, last, sizeof now);
  bool changed = false;
  for (std::size_t i = 0; i < kCounters; ++i) {
    now[i] = rate_between(before[i], now[i], interval);
    changed |= now[i] != 0;
  }
  std::memcpy(rates, now, sizeof now);
  return changed;
}

// rates_between applies rate_between to a row of counters; the pointers need no alignment, and
// `interval` is not 0. It returns whether any rate is not 0. Every row of every poll passes here.
template <std::size_t kCounters>
bool rates_between(const unsigned char* prev, const unsigned char* last, unsigned char* rates,
                   std::uint32_t interval) {
  constexpr std::size_t kPairs = (kCounters + 1) / 2;
  constexpr std::size_t kInLast = kCounters - 2 * (kPairs - 1);
  constexpr std::size_t kStep = sizeof(CounterPair);
  constexpr double kMost = 0x1p53;  // up to here the difference of two counts is exact in a double
  CounterPair differences[kPairs];
  auto fit = CounterPair{} == CounterPair{};
  auto changed = CounterPair{} != CounterPair{};
  const auto subtract = [&](std::size_t pair, CounterPair now, CounterPair before) {
    differences[pair] = now - before;
    fit &= now <= kMost;  // in steps: g++ compares element by element when they are one expression
    fit &= differences[pair] >= 0;
    changed |= differences[pair] != 0;
  };
  for (std::size_t i = 0; i + 1 < kPairs; ++i) {
    subtract(i, load_counters<2>(last + i * kStep), load_counters<2>(prev + i * kStep));
  }
  constexpr std::size_t kLast = kPairs - 1;
  subtract(kLast, load_counters<kInLast>(last + kLast * kStep),
           load_counters<kInLast>(prev + kLast * kStep));
  if ((fit[0] & fit[1]) == 0 || interval >= kPlainDivisionBelow) [[unlikely]] {
    return exact_rates_between<kCounters>(prev, last, rates, interval);
  }
  const double seconds = interval;
  for (std::size_t i = 0; i < kLast; ++i) {
    store_counters<2>(rates + i * kStep, differences[i] / seconds);
  }
  store_counters<kInLast>(rates + kLast * kStep, differences[kLast] / seconds);
  return (changed[0] | changed[1]) != 0;
}

// rates_of_new turns the counters of a row that the previous sample has not into rates. `interval`
// is not 0.
template <std::size_t kCounters>
void rates_of_new(double (&counters)[kCounters], std::uint32_t interval) {
  if (interval < kPlainDivisionBelow) {
    const double seconds = interval;
    for (double& counter : counters) counter /= seconds;
  } else {
    for (double& counter : counters) counter = rate_of_change(whole_count(counter), interval);
  }
}

}  // namespace tally
