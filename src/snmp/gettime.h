// DateAndTime values (RFC 2579) of the local clock, and times as text. Thread-safe as far as no
// log context is installed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "snmp/values.h"

namespace tally {

// GetSystemDateAndTime puts the local time into `*out`: `size` is 8, or 11 with the offset from
// UTC. An octet string that is there already must have that length and is written over; null is
// replaced by a new one, which the caller owns. Returns 0, or -1 (logs; `*out` is unchanged).
[[nodiscard]] int GetSystemDateAndTime(std::int32_t size, OctetString** out);

// FormatTimeTicks writes hundredths of a second as "days hh:mm:ss.hh".
void FormatTimeTicks(std::uint32_t ticks, char* text, std::size_t room);

// FormatDateAndTime writes a DateAndTime as "year/mm/dd hh:mm:ss.dd", the last in tenths of a
// second. Returns 0, or -1 for a string that is neither 8 nor 11 bytes long.
[[nodiscard]] int FormatDateAndTime(const OctetString* time, char* text, std::size_t room);

}  // namespace tally
