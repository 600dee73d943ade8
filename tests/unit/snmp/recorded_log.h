// Records what the SNMP library logs while it lives: "LEVEL text", the level in hex, no newline.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "snmp/debug.h"

namespace tally {

class RecordedLog {
 public:
  RecordedLog() {
    lines_.clear();
    context_.mask = ~0U;
    context_.sink = [](LogMessage* message) {
      std::string text = message->message;
      if (text.ends_with('\n')) text.pop_back();
      char level[16];
      std::snprintf(level, sizeof level, "%x ", message->level);
      lines_.push_back(level + text);
      FreeLogMessage(message);
    };
    log_context = &context_;
  }
  ~RecordedLog() { log_context = nullptr; }
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;

  // take returns what was logged since the last call.
  std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
  static inline std::vector<std::string> lines_;
  LogContext context_ = {};
};

}  // namespace tally
