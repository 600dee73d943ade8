#include "support/syslog_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

std::mutex mutex;
std::vector<tally::LogLine>& lines() {
  static auto& kept = *new std::vector<tally::LogLine>;  // threads may outlive main()
  return kept;
}

void keep(int priority, const char* format, std::va_list arguments) {
  char text[4096];
  std::vsnprintf(text, sizeof text, format, arguments);
  const std::lock_guard lock(mutex);
  lines().push_back({priority, text});
}

}  // namespace

extern "C" {

void syslog(int priority, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  keep(priority, format, arguments);
  va_end(arguments);
}

// What syslog() becomes in a build with _FORTIFY_SOURCE.
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  keep(priority, format, arguments);
  va_end(arguments);
}
}

namespace tally {

std::vector<LogLine> take_log() {
  const std::lock_guard lock(mutex);
  return std::exchange(lines(), {});
}

}  // namespace tally
