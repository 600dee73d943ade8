// The log facility itself, and times as values and as text.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "system_faults.h"

namespace tally {
namespace {

TEST(Log, AMessageHasItsPlaceItsTimeAndItsProgram) {
  setenv("TZ", "UTC", 1);
  tzset();
  static std::time_t stamp = 0;
  char* text = nullptr;
  std::size_t size = 0;
  LogSink sink = {ZNLOG_STDERR | ZNLOG_APPEND | ZNLOG_EXTEND, 1, nullptr};
  RecordedLog log;
  log.context.progname = "tallyd";
  log.context.output = &sink;
  log.context.sink = [](LogMessage* message) {
    stamp = std::exchange(message->timestamp, 0);
    message->level |= APTRACE;
    message->user_data = reinterpret_cast<void*>(0xBEEF);
    WriteLogMessage(message);
  };
  const std::time_t before = std::time(nullptr);
  ZN_LOG(APUSER, "there is no stream yet\n");
  sink.logfile_fp = open_memstream(&text, &size);
  for (const int format : {1, 0}) {
    sink.format = format;
    StartLogMessage(APUSER, "%s: %d\n", "lost", 7);
    FinishLogMessage("make_lib.cpp", 42);
  }
  const LogSink other = {sink.operFlags, 1, stderr};
  PrintLogSink(&other, sink.logfile_fp);
  std::fclose(sink.logfile_fp);
  EXPECT_EQ(std::string(text, size),
            "LogLevel:    APTRACE APUSER\n"
            "timestamp:   0 (Thu Jan  1 00:00:00 1970)\n"
            "progname:    tallyd\n"
            "filename:    make_lib.cpp\n"
            "linenum:     42\n"
            "message:     tallyd: lost: 7\n"
            "UserData:    0xbeef\n"
            "tallyd: lost: 7\n"
            "                              at line 42 in file make_lib.cpp\n"
            "operFlags:   ZNLOG_APPEND ZNLOG_STDERR ZNLOG_EXTEND\n"
            "format:      1\nlogfile_fp:  stderr\n");
  std::free(text);  // NOLINT: made by open_memstream
  EXPECT_TRUE(before <= stamp && stamp <= std::time(nullptr));
}

TEST(Log, WhatIsDropped) {
  RecordedLog log;
  log.context.mask = APWARN;
  log.context.progname = "tallyd";
  const std::size_t before = live_blocks();
  for (const int failing : {1, 2, 3}) {
    faults = {failing, 0};
    ZN_LOG(APWARN, "no memory\n");
  }
  faults = {};
  ZN_LOG(APERROR, "not in the mask\n");
  ZN_LOG(APALWAYS, "in every mask\n");
  StartLogMessage(APALWAYS, "first\n");
  StartLogMessage(APALWAYS, "while another is pending\n");
  FinishLogMessage("a", 1);
  FinishLogMessage("b", 2);
  EXPECT_EQ(log.take(), "0 tallyd: in every mask|0 tallyd: first");
  log.context.sink = FreeLogMessage;
  StartLogMessage(APALWAYS, "discarded before it is made\n");
  EXPECT_EQ(log.context.pending, nullptr);
  log.context.sink = nullptr;
  ZN_LOG(APALWAYS, "no sink\n");
  log_context = nullptr;
  ZN_LOG(APALWAYS, "no context\n");
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(live_blocks(), before);
}

TEST(Log, ASinkWhoseOwnCallsFailIsNotEnteredAgain) {
  RecordedLog log;
  log.context.sink = [](LogMessage* message) {
    RecordedLog::record(message);
    EXPECT_EQ(MakeOID(nullptr, 129), nullptr);
  };
  for (int times = 1; times <= 2; ++times) {
    EXPECT_EQ(MakeOID(nullptr, -1), nullptr);
    EXPECT_EQ(log.take(), "20000 MakeOID: Bad sid string length: -1");
  }
}

TEST(Log, TextsOfAnyLength) {
  RecordedLog log;
  const std::string long_name(1100, 'n');  // what is written past the buffer ruins the frame
  for (const char* name : {long_name.c_str(), ""}) {
    log.context.progname = name;
    ZN_LOG(APWARN, "%s\n", long_name.c_str());
    const std::string cut(sizeof log.context.buffer - 1, 'n');
    EXPECT_EQ(log.take(), "1000 " + cut) << name;
  }
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
  const std::time_t told = std::mktime(&local);
  const auto after = std::chrono::system_clock::now();  // time() may still be in the last second
  EXPECT_TRUE(before <= told && told <= std::chrono::system_clock::to_time_t(after)) << text;
  EXPECT_EQ(text_of(time->octet_ptr + 8, 3), "2D 03 1E");
  for (const std::int32_t size : {9, 8}) EXPECT_EQ(GetSystemDateAndTime(size, &out), -1);
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
