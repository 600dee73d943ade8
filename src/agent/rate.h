// The rate rule of the agent's 64-bit counters: the only division in this room.
//
// Counters are doubles that were converted from unsigned 64-bit numbers. Differences and quotients
// are taken in the processor's 80-bit extended precision and rounded to double once, so that no
// rate of a large counter loses bits to an intermediate result.
#pragma once

#include <cfloat>
#include <cstdint>

namespace tally {

static_assert(LDBL_MANT_DIG >= 64, "rates need extended precision");

// rate_between returns the rate, per second, between two samples of a counter:
//   - it went up: the difference over the interval;
//   - it went down from above 2^63: it wrapped, and 2^64 is added first;
//   - it went down from elsewhere: it was reset, and the rate is the raw new count, undivided.
inline double rate_between(double prev, double last, long double seconds) {
  if (last == prev) return 0.0;
  const long double now = last;
  if (last > prev) return static_cast<double>((now - prev) / seconds);
  if (prev > 0x1p63) return static_cast<double>((now + 0x1p64L - prev) / seconds);
  return last;
}

// rate_of_new returns the rate of a counter that was not there in the previous sample.
inline double rate_of_new(double last, long double seconds) {
  return static_cast<double>(static_cast<long double>(last) / seconds);
}

}  // namespace tally
