// The transport on loopback. What keeps state for the life of a process (ports) or ends it is run
// in a child. Silence, stale answers and foreign ones are in the end-to-end tests of the
// supervisor.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "system_faults.h"

namespace tally {
namespace {

using namespace snmpio;

// The library's socket is its own agent: what is sent comes back.
class Transport : public testing::Test {
 protected:
  void SetUp() override {
    InitializeIO("transport_test", "127.0.0.1");
    seconds = 1;
    agent_address.sin_port = 0;
    socklen_t size = sizeof agent_address;
    auto* const address = reinterpret_cast<sockaddr*>(&agent_address);
    ASSERT_EQ(bind(fd, address, size), 0);
    getsockname(fd, address, &size);
  }
  void TearDown() override {
    CloseUp();
    zn_pkt_size = 2048;
  }

  static void answer(std::size_t size) {
    const Bytes bytes(size, 0x5A);
    ASSERT_EQ(sendto(fd, bytes.data(), size, 0, reinterpret_cast<sockaddr*>(&agent_address),
                     sizeof agent_address),
              static_cast<ssize_t>(size));
  }

  // Expects no response, for this reason: EINTR when the alarm has ended the wait, EAGAIN when the
  // socket's own limit has.
  static void expect_none(int reason) {
    errno = 0;
    const int result = GetResponse();
    EXPECT_EQ(errno, reason);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(alarm(0), 0U);
  }
};

TEST_F(Transport, ADatagramIsEmptyOrCut) {
  answer(0);
  expect_none(0);
  for (const std::int32_t limit : {2048, 60000}) {  // the buffer is not that large
    zn_pkt_size = limit;
    answer(3000);
    EXPECT_EQ(GetResponse(), 2);
    EXPECT_EQ(packet_len, 2048);
  }
}

TEST_F(Transport, AnAlarmThatDoesNotReachTheReceiveDoesNotHangIt) {
  expect_none(EINTR);
  CloseUp();
  InitializeIO("transport_test", "127.0.0.1");  // a socket that has no limit yet
  // The alarm comes before the receive has started or, as here, afterwards.
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
  expect_none(EAGAIN);
  pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
  timeval limit = {};
  socklen_t size = sizeof limit;
  getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &size);
  EXPECT_EQ(limit.tv_sec, 2);  // later than the alarm
}

TEST_F(Transport, OtherSignalsDoNotEndTheWait) {
  std::signal(SIGUSR1, [](int) {});  // restarts no receive that has a limit
  std::thread peer([receiver = pthread_self()] {
    for (int i = 0; i < 5; ++i) {
      usleep(20000);
      pthread_kill(receiver, SIGUSR1);
    }
    usleep(20000);
    answer(9);
  });
  seconds = 5;
  EXPECT_EQ(GetResponse(), 2);
  EXPECT_EQ(packet_len, 9);
  peer.join();
}

TEST_F(Transport, WhatCannotBeSentOrReceived) {
  RecordedLog log;
  EXPECT_EQ(SendToIO(fd, packet, 2049), 0);
  EXPECT_EQ(SendToIO(fd, packet, -1), 0);
  faults = {1, 0};
  EXPECT_EQ(SendToIO(fd, packet, 10), 0);
  agent_address.sin_addr.s_addr = INADDR_BROADCAST;  // which the socket has no permission for
  EXPECT_EQ(SendToIO(fd, packet, 10), 0);
  EXPECT_EQ(log.take(),
            "2000 transport_test:  send.|2000 transport_test:  send.|"
            "1000 transport_test:  couldn't get send buffer|2000 transport_test:  send.");
  CloseUp();
  CloseUp();
  EXPECT_EQ(fd, -1);
  expect_none(EBADF);
  faults = {1, 0};
  InitializeIO(nullptr, "127.0.0.1");
  faults = {};
  EXPECT_EQ(packet, nullptr);
  expect_none(EINTR);
}

// From here on no socket can be made and no file opened.
void open_no_more_files() {
  static rlimit usual;
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none = {0, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  std::atexit([] { setrlimit(RLIMIT_NOFILE, &usual); });  // the leak check at the end opens some
}

// What a process of its own does, which ends when there is no socket or no such host. The parent
// compares what it prints.
void run(const char* snmp_port, const char* trap_port, bool with_files, const char* host) {
  RecordedLog log;
  log.context.sink = [](LogMessage* message) {
    std::fprintf(stderr, "%x %s|", message->level, message->message);
    FreeLogMessage(message);
  };
  snmp_port ? setenv("ZN_SNMP_TEST_PORT", snmp_port, 1) : unsetenv("ZN_SNMP_TEST_PORT");
  trap_port ? setenv("ZN_TRAP_TEST_PORT", trap_port, 1) : unsetenv("ZN_TRAP_TEST_PORT");
  if (!with_files) open_no_more_files();
  for (int i = 0; i < 2; ++i) {
    const int port = GetSNMPPort();
    std::fprintf(stderr, "%d %d|", port, GetSNMPTrapPort());
    setenv("ZN_SNMP_TEST_PORT", "99", 1);  // too late
    setenv("ZN_TRAP_TEST_PORT", "99", 1);
  }
  InitializeIO(std::string(500, 'p').c_str(), host);
  std::fprintf(stderr, "%s at %s:%d, looked up: %d|", imagename, inet_ntoa(agent_address.sin_addr),
               ntohs(agent_address.sin_port), hp != nullptr);
  for (int i = 0; i < 3; ++i) {
    if (i == 2) open_no_more_files();
    sockaddr_in bound = {};
    socklen_t size = sizeof bound;
    const bool opened =
        getsockname(OpenTrapSocket(), reinterpret_cast<sockaddr*>(&bound), &size) == 0;
    std::fprintf(stderr, "%s %d|", opened ? "trap" : "none", ntohs(bound.sin_port));
  }
  InitializeIO("tallyd", host);
}

TEST(Start, InAProcessOfItsOwn) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto expect = [](const char* snmp_port, const char* trap_port, bool with_files,
                         const char* host, const std::string& printed) {
    EXPECT_EXIT(run(snmp_port, trap_port, with_files, host), testing::ExitedWithCode(255),
                testing::HasSubstr(printed));
  };
  expect("1161", "51162", true, "localhost",
         "80 GetSNMPPort: snmp port is 1161 from getenv(\"ZN_SNMP_TEST_PORT\")\n|"
         "40000 GetSNMPTrapPort: trap port is 51162 from getenv(\"ZN_TRAP_TEST_PORT\")\n|"
         "1161 51162|1161 51162|" +
             std::string(127, 'p') +
             " at 127.0.0.1:1161, looked up: 1|trap 51162|"
             "2000 traprcv:  bind|none 0|2000 OpenTrapSocket: socket() failed\n|none 0|"
             "2000 tallyd:  unable to connect to socket.\n|");
  expect("1161", nullptr, true, "127.0.0.1",
         "40000 GetSNMPTrapPort: trap port is 1162 from getenv(\"ZN_SNMP_TEST_PORT\") + 1\n|"
         "1161 1162|1161 1162|");
  expect(nullptr, nullptr, true, "no.such.host.invalid",
         "80 GetSNMPPort: snmp port is 161 from snmp in /etc/services\n|"
         "40000 GetSNMPTrapPort: trap port is 162 from snmp-trap in /etc/services\n|"
         "161 162|161 162|2000 no.such.host.invalid:  host unknown.\n|");
  expect(nullptr, nullptr, false, "127.0.0.1",
         "1000 GetSNMPPort: no snmp entry in /etc/services; |"
         "1000 snmp port is 161 from #define SNMP_PORT\n|"
         "40000 GetSNMPTrapPort: no snmp-trap entry in /etc/services; |"
         "40000 trap port is 162 from #define SNMP_TRAP_PORT\n|161 162|161 162|");
}

}  // namespace
}  // namespace tally
