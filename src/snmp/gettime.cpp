#include "snmp/gettime.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "snmp/debug.h"
#include "snmp/make_lib.h"

namespace tally {
namespace {

constexpr char kRoutine[] = "GetSystemDateAndTime";
constexpr std::int32_t kShort = 8;
constexpr std::int32_t kLong = 11;

// Writes the fields of RFC 2579 in their order: two bytes of year, one each of the others.
void fill(const tm& local, long microseconds, unsigned char (&bytes)[kLong]) {
  const int year = local.tm_year + 1900;
  const long offset = std::labs(local.tm_gmtoff) / 60;  // minutes
  const int fields[kLong] = {year >> 8,
                             year & 0xFF,
                             local.tm_mon + 1,
                             local.tm_mday,
                             local.tm_hour,
                             local.tm_min,
                             local.tm_sec,
                             static_cast<int>(microseconds / 100000),
                             local.tm_gmtoff < 0 ? '-' : '+',
                             static_cast<int>(offset / 60),
                             static_cast<int>(offset % 60)};
  for (std::int32_t i = 0; i < kLong; ++i) bytes[i] = static_cast<unsigned char>(fields[i]);
}

}  // namespace

int GetSystemDateAndTime(std::int32_t size, OctetString** out) {
  if (size != kShort && size != kLong) {
    ZN_LOG(APPACKET, "%s: Invalid size parameter %d, must be 8 or 11.\n", kRoutine, size);
    return -1;
  }
  if (*out != nullptr && (*out)->length != size) {
    ZN_LOG(APPACKET, "%s: Incoming OctetString not the right size.  Should be %d and is %d\n",
           kRoutine, size, (*out)->length);
    return -1;
  }
  timeval now = {};
  if (gettimeofday(&now, nullptr) != 0) {
    ZN_LOG(APERROR, "%s: GetTOD failed with error %d\n", kRoutine, errno);
    return -1;
  }
  tm local = {};
  if (localtime_r(&now.tv_sec, &local) == nullptr) {
    ZN_LOG(APERROR, "%s: localtime failed\n", kRoutine);
    return -1;
  }
  unsigned char bytes[kLong];
  fill(local, now.tv_usec, bytes);
  if (*out != nullptr) {
    std::memcpy((*out)->octet_ptr, bytes, static_cast<std::size_t>(size));
    return 0;
  }
  *out = MakeOctetString(bytes, size);
  if (*out == nullptr) {
    ZN_LOG(APWARN, "%s: MakeOctetString failed\n", kRoutine);
    return -1;
  }
  return 0;
}

void FormatTimeTicks(std::uint32_t ticks, char* text, std::size_t room) {
  const long total = static_cast<long>(ticks);
  (void)std::snprintf(text, room, "%3ld %2.2ld:%2.2ld:%2.2ld.%2.2ld", total / 8640000,
                      total / 360000 % 24, total / 6000 % 60, total / 100 % 60, total % 100);
}

int FormatDateAndTime(const OctetString* time, char* text, std::size_t room) {
  if (time == nullptr || (time->length != kShort && time->length != kLong)) return -1;
  const unsigned char* const b = time->octet_ptr;
  const long year = b[0] * 256L + b[1];
  (void)std::snprintf(text, room, "%4ld/%2.2ld/%2.2ld %2.2ld:%2.2ld:%2.2ld.%2.2ld", year,
                      long{b[2]}, long{b[3]}, long{b[4]}, long{b[5]}, long{b[6]}, long{b[7]});
  return 0;
}

}  // namespace tally
