// The rate rule of the agent's 64-bit counters: the only division in this room.
//
// Counters are doubles that were converted from unsigned 64-bit numbers. Differences and quotients
// are taken in the processor's 80-bit extended precision and then rounded to double.
#pragma once

#include <emmintrin.h>

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// Two counters side by side, as every x86-64 processor compares, subtracts and divides them at
// once. One alone stands beside a zero.
template <std::size_t kCount>
__m128d load_counters(const unsigned char* from) {
  double counters[2] = {};
  std::memcpy(counters, from, kCount * sizeof(double));
  return _mm_set_pd(counters[1], counters[0]);
}
template <std::size_t kCount>
void store_counters(unsigned char* to, __m128d pair) {
  double counters[2];
  _mm_storeu_pd(counters, pair);
  std::memcpy(to, counters, kCount * sizeof(double));
}

// exact_rates_between is rates_between for any counters and intervals.
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

// rates_between applies rate_between to a row of counters, which lie at any alignment. `interval`
// is not 0. Returns whether any rate is not 0. This is where most of a poll's own time goes.
template <std::size_t kCounters>
bool rates_between(const unsigned char* prev, const unsigned char* last, unsigned char* rates,
                   std::uint32_t interval) {
  constexpr std::size_t kPairs = (kCounters + 1) / 2;
  constexpr std::size_t kInLast = kCounters - 2 * (kPairs - 1);
  constexpr std::size_t kStep = 2 * sizeof(double);
  const __m128d zero = _mm_setzero_pd();
  const __m128d most = _mm_set1_pd(0x1p53);  // the difference of two counters is exact up to here
  __m128d differences[kPairs];
  __m128d fit = _mm_cmpeq_pd(zero, zero);
  __m128d changed = zero;
  const auto subtract = [&](std::size_t pair, __m128d now, __m128d before) {
    differences[pair] = _mm_sub_pd(now, before);
    fit = _mm_and_pd(fit, _mm_cmple_pd(now, most));
    fit = _mm_and_pd(fit, _mm_cmpge_pd(differences[pair], zero));
    changed = _mm_or_pd(changed, _mm_cmpneq_pd(differences[pair], zero));
  };
  for (std::size_t i = 0; i + 1 < kPairs; ++i) {
    subtract(i, load_counters<2>(last + i * kStep), load_counters<2>(prev + i * kStep));
  }
  constexpr std::size_t kLast = kPairs - 1;
  subtract(kLast, load_counters<kInLast>(last + kLast * kStep),
           load_counters<kInLast>(prev + kLast * kStep));
  if (_mm_movemask_pd(fit) != 3 || interval >= kPlainDivisionBelow) [[unlikely]] {
    return exact_rates_between<kCounters>(prev, last, rates, interval);
  }
  const __m128d seconds = _mm_set1_pd(interval);
  for (std::size_t i = 0; i < kLast; ++i) {
    store_counters<2>(rates + i * kStep, _mm_div_pd(differences[i], seconds));
  }
  store_counters<kInLast>(rates + kLast * kStep, _mm_div_pd(differences[kLast], seconds));
  return _mm_movemask_pd(changed) != 0;
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
