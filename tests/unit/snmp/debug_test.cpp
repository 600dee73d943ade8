// The log facility itself, and times as values and as text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "sample_pdu.h"
#include "snmp/snmp.h"
#include "system_faults.h"

namespace tally {
namespace {

// What `print` writes to a stream.
template <typename Print>
std::string printed(Print print) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  print(stream);
  std::fclose(stream);
  const std::string copy(text, size);
  std::free(text);  // NOLINT: made by open_memstream
  return copy;
}

class Log : public testing::Test {
 protected:
  Log() {
    context.mask = APWARN | APUSER;
    context.progname = "tallyd";
    context.sink = [](LogMessage* message) {
      last_message.reset(message);
      ++delivered;
    };
    delivered = 0;
    log_context = &context;
  }
  ~Log() override {
    log_context = nullptr;
    last_message.reset();
  }
  struct Free {
    void operator()(LogMessage* message) const { FreeLogMessage(message); }
  };
  static inline std::unique_ptr<LogMessage, Free> last_message;
  static inline int delivered = 0;
  LogContext context = {};
};

TEST_F(Log, AMessageHasItsPlaceItsTimeAndItsProgram) {
  StartLogMessage(APWARN, "%s: %d\n", "lost", 7);
  FinishLogMessage("make_lib.cpp", 42);
  ASSERT_NE(last_message, nullptr);
  EXPECT_EQ(last_message->level, APWARN);
  EXPECT_NEAR(last_message->timestamp, static_cast<double>(std::time(nullptr)), 2);

  last_message->timestamp = 0;
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(printed([](std::FILE* s) { PrintShortLogMessage(last_message.get(), s); }),
            "tallyd: lost: 7\n"
            "                              at line 42 in file make_lib.cpp\n");
  last_message->level = APTRACE | APUSER;
  last_message->user_data = reinterpret_cast<void*>(0xBEEF);
  EXPECT_EQ(printed([](std::FILE* s) { PrintLongLogMessage(last_message.get(), s); }),
            "LogLevel:    APTRACE APUSER\n"
            "timestamp:   0 (Thu Jan  1 00:00:00 1970)\n"
            "progname:    tallyd\n"
            "filename:    make_lib.cpp\n"
            "linenum:     42\n"
            "message:     tallyd: lost: 7\n"
            "UserData:    0xbeef\n");
}

TEST_F(Log, WhatIsDropped) {
  faults = {1, 0};
  ZN_LOG(APWARN, "no memory\n");
  faults = {};
  ZN_LOG(APERROR, "not in the mask\n");
  EXPECT_EQ(delivered, 0);
  context.mask = 0;
  ZN_LOG(APALWAYS, "in every mask\n");
  EXPECT_EQ(delivered, 1);
  StartLogMessage(APALWAYS, "first\n");
  StartLogMessage(APALWAYS, "while another is pending\n");
  FinishLogMessage("a", 1);
  FinishLogMessage("b", 2);
  EXPECT_EQ(delivered, 2);
  EXPECT_STREQ(last_message->message, "tallyd: first\n");
  context.sink = FreeLogMessage;
  StartLogMessage(APALWAYS, "discarded before it is made\n");
  EXPECT_EQ(context.pending, nullptr);
  context.sink = nullptr;
  ZN_LOG(APALWAYS, "no sink\n");
  log_context = nullptr;
  ZN_LOG(APALWAYS, "no context\n");
  EXPECT_EQ(delivered, 2);
}

TEST_F(Log, ASinkWhoseOwnCallsFailIsNotEnteredAgain) {
  context.sink = [](LogMessage* message) {
    FreeLogMessage(message);
    ++delivered;
    EXPECT_EQ(MakeOID(nullptr, 129), nullptr);
  };
  context.mask = ~0U;
  for (int times = 1; times <= 2; ++times) {
    EXPECT_EQ(MakeOID(nullptr, -1), nullptr);
    EXPECT_EQ(delivered, times);
  }
}

TEST_F(Log, TextsOfAnyLengthAreCut) {
  const std::string long_name(5000, 'n');
  for (const char* name : {long_name.c_str(), ""}) {
    context.progname = name;
    ZN_LOG(APWARN, "%s\n", long_name.c_str());
    EXPECT_EQ(std::strlen(last_message->message), sizeof context.buffer - 1);
  }
  EXPECT_EQ(last_message->progname, nullptr);
}

TEST_F(Log, SinksAndTheirDump) {
  context.mask = ~0U;
  TestLogMessages();
  EXPECT_EQ(delivered, 12);  // one of each level
  EXPECT_STREQ(last_message->message, "tallyd: Testing log message facility for APUSER.\n");

  LogSink sink = {ZNLOG_STDERR | ZNLOG_APPEND | ZNLOG_EXTEND, 1, stderr};
  EXPECT_EQ(printed([&](std::FILE* stream) { PrintLogSink(&sink, stream); }),
            "operFlags:   ZNLOG_APPEND ZNLOG_STDERR ZNLOG_EXTEND\n"
            "format:      1\nlogfile_fp:  stderr\n");
  context.sink = WriteLogMessage;
  ZN_LOG(APWARN, "nowhere to go\n");
  context.output = &sink;
  const auto write = [&](std::FILE* stream) {
    sink.logfile_fp = stream;
    ZN_LOG(APWARN, "written\n");
  };
  EXPECT_EQ(printed(write).find("LogLevel:    APWARN\n"), 0U);
  sink.format = 0;
  EXPECT_EQ(printed(write).find("tallyd: written"), 0U);
}

TEST(Time, DateAndTimeOfTheLocalClock) {
  setenv("TZ", "UTC+3:30", 1);  // west of Greenwich
  tzset();
  OctetString* out = nullptr;
  const std::time_t before = std::time(nullptr);
  ASSERT_EQ(GetSystemDateAndTime(11, &out), 0);
  const OctetStringPtr time(out);
  char text[64];
  ASSERT_EQ(FormatDateAndTime(time.get(), text, sizeof text), 0);
  tm local = {};
  strptime(text, "%Y/%m/%d %H:%M:%S", &local);
  EXPECT_NEAR(static_cast<double>(std::mktime(&local) - before), 0, 2);
  EXPECT_EQ(text_of(time->octet_ptr + 8, 3), "2D 03 1E");

  RecordedLog log;
  for (const std::int32_t size : {9, 8}) EXPECT_EQ(GetSystemDateAndTime(size, &out), -1);
  const std::string start = "20000 GetSystemDateAndTime: ";
  EXPECT_EQ(log.take(), (std::vector{start + "Invalid size parameter 9, must be 8 or 11.",
                                     start + "Incoming OctetString not the right size.  Should be "
                                             "8 and is 11"}));
}

TEST(Time, AsText) {
  char text[64];
  FormatTimeTicks(4294967295, text, sizeof text);
  EXPECT_STREQ(text, "497 02:27:52.95");
  const OctetStringPtr time(MakeOctetStringFromHex("07c8051a0d1e0f00"));  // RFC 2579's example
  ASSERT_EQ(FormatDateAndTime(time.get(), text, sizeof text), 0);
  EXPECT_STREQ(text, "1992/05/26 13:30:15.00");
  const OctetStringPtr broken(MakeOctetString(nullptr, 9));
  EXPECT_EQ(FormatDateAndTime(broken.get(), text, sizeof text), -1);
  EXPECT_EQ(FormatDateAndTime(nullptr, text, sizeof text), -1);
}

}  // namespace
}  // namespace tally
