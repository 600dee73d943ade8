// The library's diagnostic log. The library reports every failure here and nowhere else.
//
// Nothing is logged until the application installs a context in `log_context`, which is null at
// first. A message passes in two steps on one thread: the first formats it into the context's
// pending record, the second adds where it came from and hands the record to the sink. While a
// record is pending, and while a sink runs, further messages are dropped.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tally {

// Levels: a mask in a context, exactly one of them in a message.
inline constexpr std::uint32_t APALWAYS = 0;      // passes every mask
inline constexpr std::uint32_t APTRACE = 0x80;    // where the agent's port comes from
inline constexpr std::uint32_t APWARN = 0x1000;   // no memory, end of packet, null arguments
inline constexpr std::uint32_t APERROR = 0x2000;  // sockets, hosts, malformed OIDs
inline constexpr std::uint32_t APTHREAD = 0x4000;
inline constexpr std::uint32_t APTIMER = 0x8000;
inline constexpr std::uint32_t APCONFIG = 0x10000;
inline constexpr std::uint32_t APPACKET = 0x20000;  // what cannot be encoded or decoded
inline constexpr std::uint32_t APTRAP = 0x40000;    // where the trap port comes from
inline constexpr std::uint32_t APACCESS = 0x80000;
inline constexpr std::uint32_t APVERBOSE = 0x200000;
inline constexpr std::uint32_t APUSER = 0x400000;

// Flags of a LogSink.
inline constexpr std::uint32_t ZNLOG_FILE = 0x1;
inline constexpr std::uint32_t ZNLOG_TRACEFILE = 0x2;
inline constexpr std::uint32_t ZNLOG_APPEND = 0x4;
inline constexpr std::uint32_t ZNLOG_STDOUT = 0x8;
inline constexpr std::uint32_t ZNLOG_STDERR = 0x10;
inline constexpr std::uint32_t ZNLOG_RESERVED_D = 0x8000000;
inline constexpr std::uint32_t ZNLOG_RESERVED_C = 0x10000000;
inline constexpr std::uint32_t ZNLOG_RESERVED_B = 0x20000000;
inline constexpr std::uint32_t ZNLOG_RESERVED_A = 0x40000000;
inline constexpr std::uint32_t ZNLOG_EXTEND = 0x80000000;

// LogMessage is one message on its way to the sink. The texts are owned.
struct LogMessage {
  std::uint32_t level;
  std::uint32_t timestamp;  // seconds since the epoch
  char* progname;           // null when the context has none
  char* filename;           // null before the second step
  std::int32_t linenum;
  char* message;
  void* user_data;
};

// FreeLogMessage frees a message; null is allowed. As a context's sink it discards everything,
// before it is even formatted.
void FreeLogMessage(LogMessage* message);

// A sink takes the message over and frees it.
using LogSinkFunction = void (*)(LogMessage*);

// LogSink says where WriteLogMessage writes: `logfile_fp`, which the application opens and closes.
struct LogSink {
  std::uint32_t operFlags;  // ZNLOG_ flags, for PrintLogSink and the application only
  std::int32_t format;      // 0 short, else long
  std::FILE* logfile_fp;
};

// LogContext is what an application fills in and installs; it outlives its installation.
struct LogContext {
  std::uint32_t mask;
  const char* progname;  // before every text; null or empty for none
  LogSinkFunction sink;
  const LogSink* output;  // for WriteLogMessage
  LogMessage* pending;    // from here on the library's own; null and false at first
  bool delivering;
  char buffer[1024];  // longer texts are cut
};

extern LogContext* log_context;

// StartLogMessage is the first step.
[[gnu::format(printf, 2, 3)]] void StartLogMessage(std::uint32_t level, const char* format, ...);

// FinishLogMessage is the second step; `filename` is copied.
void FinishLogMessage(const char* filename, std::int32_t linenum);

// ZN_LOG(level, format, ...) takes both steps, from here.
#define ZN_LOG(...)                                     \
  do {                                                  \
    ::tally::StartLogMessage(__VA_ARGS__);              \
    ::tally::FinishLogMessage(__FILE_NAME__, __LINE__); \
  } while (false)

// WriteLogMessage is a sink: it prints the message to the context's output and frees it.
void WriteLogMessage(LogMessage* message);

// PrintShortLogMessage prints the text and where it came from, PrintLongLogMessage every member,
// PrintLogSink a sink's flags, format and stream. TestLogMessages logs one message per level.
void PrintShortLogMessage(const LogMessage* message, std::FILE* stream);
void PrintLongLogMessage(const LogMessage* message, std::FILE* stream);
void PrintLogSink(const LogSink* sink, std::FILE* stream);
void TestLogMessages();

}  // namespace tally
