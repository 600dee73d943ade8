// The rate rule of the agent's 64-bit counters: the only division in this room.
//
// Counters are doubles that were converted from unsigned 64-bit numbers. Differences and quotients
// are taken in the processor's 80-bit extended precision and then rounded to double.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>

namespace tally {

static_assert(LDBL_MANT_DIG >= 64, "rates need extended precision");

// rate_between returns the rate, per second, between two samples of a counter:
//   - it went up or stayed: the difference over the interval;
//   - it went down from above 2^63: it wrapped, and 2^64 is added first;
//   - it went down from elsewhere: it was reset, and the rate is the raw new count, undivided.
inline double rate_between(double prev, double last, long double seconds) {
  const long double now = last;
  if (last >= prev) return static_cast<double>((now - prev) / seconds);
  if (prev > 0x1p63) return static_cast<double>((now + 0x1p64L - prev) / seconds);
  return last;
}

// rate_of_new returns the rate of a counter that was not there in the previous sample.
inline double rate_of_new(double last, long double seconds) {
  return static_cast<double>(static_cast<long double>(last) / seconds);
}

// Below this interval the quotient of a double and a whole number is the same whether it is rounded
// to double at once, or to 64 bits first. The two ways differ only where the 64-bit rounding falls
// on the middle m between two neighbouring doubles although the quotient n / d does not. With u the
// distance of these doubles, n and d * m are whole multiples of u / 2 (n has 53 bits and n >= d *
// 2^52 * u), so n / d is at least u / (2 d) away from m, and the 64-bit rounding moves by u / 2^12
// at the most: for d < 2^11 it cannot reach m. Plain division is several times as fast, and two go
// at a time.
inline constexpr std::uint32_t kPlainDivisionBelow = 2048;

// rates_between applies rate_between to a row of counters. `interval` is not 0. Returns whether any
// rate is not 0. `rates` may be `last`.
template <std::size_t kCounters>
bool rates_between(const double* prev, const double* last, double* rates, std::uint32_t interval) {
  // Up to 2^53 the difference of two whole numbers is exact, too.
  bool plain = interval < kPlainDivisionBelow;
  for (std::size_t i = 0; i < kCounters; ++i) {
    plain &= static_cast<bool>((last[i] >= prev[i]) & (last[i] <= 0x1p53));
  }
  if (plain) {
    const double seconds = interval;
    for (std::size_t i = 0; i < kCounters; ++i) rates[i] = (last[i] - prev[i]) / seconds;
  } else {
    const long double seconds = interval;
    for (std::size_t i = 0; i < kCounters; ++i) rates[i] = rate_between(prev[i], last[i], seconds);
  }
  bool changed = false;
  for (std::size_t i = 0; i < kCounters; ++i) changed |= rates[i] != 0;
  return changed;
}

// rates_of_new applies rate_of_new to a row of counters. `interval` is not 0. `rates` may be
// `last`.
template <std::size_t kCounters>
void rates_of_new(const double* last, double* rates, std::uint32_t interval) {
  if (interval < kPlainDivisionBelow) {
    const double seconds = interval;
    for (std::size_t i = 0; i < kCounters; ++i) rates[i] = last[i] / seconds;
  } else {
    for (std::size_t i = 0; i < kCounters; ++i) rates[i] = rate_of_new(last[i], interval);
  }
}

}  // namespace tally
