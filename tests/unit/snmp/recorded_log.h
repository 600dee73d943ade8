// Records what the SNMP library logs while it lives: "LEVEL text", the level in hex, no newline,
// and a bar between one and the next.
#pragma once

#include <cstdio>
#include <string>
#include <utility>

#include "snmp/debug.h"

namespace tally {

class RecordedLog {
 public:
  RecordedLog() {
    text_.clear();
    context.mask = ~0U;
    context.sink = record;
    log_context = &context;
  }
  ~RecordedLog() { log_context = nullptr; }
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;

  // record is the sink.
  static void record(LogMessage* message) {
    char level[16];
    std::snprintf(level, sizeof level, "%s%x ", text_.empty() ? "" : "|", message->level);
    text_.append(level).append(message->message);
    if (text_.ends_with('\n')) text_.pop_back();
    FreeLogMessage(message);
  }

  // take returns what was logged since the last call.
  std::string take() { return std::exchange(text_, {}); }

  LogContext context = {};

 private:
  static inline std::string text_;
};

}  // namespace tally
