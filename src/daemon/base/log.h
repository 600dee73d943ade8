// The two log calls of the daemon: syslog, facility local2, no time stamp, prefix or openlog().
//
// Any thread may call them. Texts are cut at 1023 bytes. The formatted text reaches syslog(3) as
// an argument and never as a format, so a path or a peer's string may hold a percent sign.
#pragma once

namespace tally {

// log_debug logs a notice or an error of the polling paths (LOG_LOCAL2 | LOG_DEBUG, 151).
[[gnu::format(printf, 1, 2)]] void log_debug(const char* format, ...);

// log_warning logs a start-up failure, a protocol error in a message or an allocation failure
// (LOG_LOCAL2 | LOG_WARNING, 148).
[[gnu::format(printf, 1, 2)]] void log_warning(const char* format, ...);

}  // namespace tally
