#include "daemon/base/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

namespace tally {
namespace {

void send_to_syslog(int level, const char* format, std::va_list arguments) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, arguments);
  syslog(LOG_LOCAL2 | level, "%s", text);
}

}  // namespace

void log_debug(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  send_to_syslog(LOG_DEBUG, format, arguments);
  va_end(arguments);
}

void log_warning(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  send_to_syslog(LOG_WARNING, format, arguments);
  va_end(arguments);
}

}  // namespace tally
