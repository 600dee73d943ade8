// Captures what the code under test logs: the test program defines syslog(3) itself.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace tally {

inline constexpr int kDebugPriority = 151;    // local2, debug
inline constexpr int kWarningPriority = 148;  // local2, warning

struct LogLine {
  int priority;
  std::string text;

  friend bool operator==(const LogLine&, const LogLine&) = default;
};

inline LogLine debug_line(std::string text) {
  return {kDebugPriority, std::move(text)};
}
inline LogLine warning_line(std::string text) {
  return {kWarningPriority, std::move(text)};
}
inline void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.priority << " \"" << line.text << '"';
}

// take_log returns what all threads have logged since the last call.
std::vector<LogLine> take_log();

}  // namespace tally
