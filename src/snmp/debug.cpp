#include "snmp/debug.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tally {
namespace {

struct BitName {
  std::uint32_t bit;
  const char* name;
};

constexpr BitName kLevels[] = {
    {APTRACE, "APTRACE"},     {APWARN, "APWARN"},   {APERROR, "APERROR"},
    {APTHREAD, "APTHREAD"},   {APTIMER, "APTIMER"}, {APCONFIG, "APCONFIG"},
    {APPACKET, "APPACKET"},   {APTRAP, "APTRAP"},   {APACCESS, "APACCESS"},
    {APVERBOSE, "APVERBOSE"}, {APUSER, "APUSER"},
};

constexpr BitName kSinkFlags[] = {
    {ZNLOG_FILE, "ZNLOG_FILE"},
    {ZNLOG_TRACEFILE, "ZNLOG_TRACEFILE"},
    {ZNLOG_APPEND, "ZNLOG_APPEND"},
    {ZNLOG_STDOUT, "ZNLOG_STDOUT"},
    {ZNLOG_STDERR, "ZNLOG_STDERR"},
    {ZNLOG_RESERVED_D, "ZNLOG_RESERVED_D"},
    {ZNLOG_RESERVED_C, "ZNLOG_RESERVED_C"},
    {ZNLOG_RESERVED_B, "ZNLOG_RESERVED_B"},
    {ZNLOG_RESERVED_A, "ZNLOG_RESERVED_A"},
    {ZNLOG_EXTEND, "ZNLOG_EXTEND"},
};

bool passes(const LogContext& context, std::uint32_t level) {
  return level == APALWAYS || (level & context.mask) != 0;
}

const char* text_of(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

LogContext* log_context = nullptr;

void FreeLogMessage(LogMessage* message) {
  if (message == nullptr) return;
  std::free(message->progname);
  std::free(message->filename);
  std::free(message->message);
  std::free(message);
}

void StartLogMessage(std::uint32_t level, const char* format, ...) {
  LogContext* const context = log_context;
  if (context == nullptr || context->pending != nullptr || context->sink == nullptr ||
      context->sink == FreeLogMessage || !passes(*context, level)) {
    return;
  }
  const bool named = context->progname != nullptr && context->progname[0] != '\0';
  std::size_t used = 0;
  if (named) {
    const int wanted =
        std::snprintf(context->buffer, sizeof context->buffer, "%s: ", context->progname);
    if (wanted < 0) return;
    used = std::strlen(context->buffer);
  }
  va_list arguments;
  va_start(arguments, format);
  const int written =
      std::vsnprintf(context->buffer + used, sizeof context->buffer - used, format, arguments);
  va_end(arguments);
  if (written < 0) return;

  auto* message = static_cast<LogMessage*>(std::malloc(sizeof(LogMessage)));
  if (message == nullptr) return;
  *message = {level,  static_cast<std::uint32_t>(std::time(nullptr)), nullptr, nullptr, 0, nullptr,
              nullptr};
  message->message = strdup(context->buffer);
  if (named) message->progname = strdup(context->progname);
  if (message->message == nullptr || (named && message->progname == nullptr)) {
    FreeLogMessage(message);
    return;
  }
  context->pending = message;
}

void FinishLogMessage(const char* filename, std::int32_t linenum) {
  LogContext* const context = log_context;
  if (context == nullptr || context->pending == nullptr || context->delivering ||
      !passes(*context, context->pending->level)) {
    return;
  }
  context->pending->filename = strdup(text_of(filename));
  context->pending->linenum = linenum;
  // The slot stays taken while the sink runs, so that a sink whose own calls fail is not entered
  // again; `delivering` keeps the second step of such a call off the record, which may be gone.
  context->delivering = true;
  context->sink(context->pending);
  context->delivering = false;
  context->pending = nullptr;
}

void WriteLogMessage(LogMessage* message) {
  const LogSink* const sink = log_context == nullptr ? nullptr : log_context->output;
  if (sink != nullptr && sink->logfile_fp != nullptr) {
    (sink->format == 0 ? PrintShortLogMessage : PrintLongLogMessage)(message, sink->logfile_fp);
  }
  FreeLogMessage(message);
}

void PrintShortLogMessage(const LogMessage* message, std::FILE* stream) {
  std::fprintf(stream, "%s", text_of(message->message));
  std::fprintf(stream, "                              at line %d in file %s\n", message->linenum,
               text_of(message->filename));
  (void)std::fflush(stream);
}

void PrintLongLogMessage(const LogMessage* message, std::FILE* stream) {
  std::fprintf(stream, "LogLevel:   ");
  if (message->level == APALWAYS) std::fprintf(stream, " APALWAYS");
  for (const BitName& level : kLevels) {
    if ((message->level & level.bit) != 0) std::fprintf(stream, " %s", level.name);
  }
  std::fprintf(stream, "\n");

  const std::time_t seconds = message->timestamp;
  char when[32] = "";
  if (ctime_r(&seconds, when) != nullptr) when[std::strcspn(when, "\n")] = '\0';
  std::fprintf(stream, "timestamp:   %u (%s)\n", message->timestamp, when);
  std::fprintf(stream, "progname:    %s\n", text_of(message->progname));
  std::fprintf(stream, "filename:    %s\n", text_of(message->filename));
  std::fprintf(stream, "linenum:     %d\n", message->linenum);
  std::fprintf(stream, "message:     %s", text_of(message->message));
  std::fprintf(stream, "UserData:    0x%" PRIxPTR "\n",
               reinterpret_cast<std::uintptr_t>(message->user_data));
  (void)std::fflush(stream);
}

void PrintLogSink(const LogSink* sink, std::FILE* stream) {
  std::fprintf(stream, "operFlags:  ");
  for (const BitName& flag : kSinkFlags) {
    if ((sink->operFlags & flag.bit) != 0) std::fprintf(stream, " %s", flag.name);
  }
  std::fprintf(stream, "\nformat:      %d\nlogfile_fp:  ", sink->format);
  if (sink->logfile_fp == stdout) {
    std::fprintf(stream, "stdout\n");
  } else if (sink->logfile_fp == stderr) {
    std::fprintf(stream, "stderr\n");
  } else {
    std::fprintf(stream, "0x%" PRIxPTR "\n", reinterpret_cast<std::uintptr_t>(sink->logfile_fp));
  }
  (void)std::fflush(stream);
}

void TestLogMessages() {
  ZN_LOG(APALWAYS, "Testing log message facility for %s.\n", "APALWAYS");
  for (const BitName& level : kLevels) {
    ZN_LOG(level.bit, "Testing log message facility for %s.\n", level.name);
  }
}

}  // namespace tally
