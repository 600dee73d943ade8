// What the code under test says to syslog(3): the test program defines that function itself.
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

// take_log returns what was logged since the last call, by all threads.
std::vector<LogLine> take_log();

}  // namespace tally
