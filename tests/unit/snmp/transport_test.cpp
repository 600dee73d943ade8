// The transport on loopback. The end-to-end tests of the supervisor cover silence, stale and
// foreign answers, and unknown hosts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
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

const std::string kName(127, 'p');

// A process looks its ports up once, so this test comes first. Traps are received one port above.
TEST(Ports, AreLookedUpOnceByAProcess) {
  RecordedLog log;
  for (const char* port : {"51161", "99"}) {
    setenv("ZN_SNMP_TEST_PORT", port, 1);
    EXPECT_EQ(GetSNMPPort(), 51161);
    EXPECT_EQ(GetSNMPTrapPort(), 51162);
  }
  unsetenv("ZN_SNMP_TEST_PORT");
  const int first = OpenTrapSocket();
  EXPECT_GE(first, 0);
  EXPECT_EQ(OpenTrapSocket(), -1);
  close(first);
  EXPECT_EQ(log.take(),
            "80 GetSNMPPort: snmp port is 51161 from getenv(\"ZN_SNMP_TEST_PORT\")|"
            "40000 GetSNMPTrapPort: trap port is 51162 from getenv(\"ZN_SNMP_TEST_PORT\") + 1|"
            "2000 traprcv:  bind");
}

// The library's socket is its own agent: what is sent comes back.
class Transport : public testing::Test {
 protected:
  void SetUp() override {
    InitializeIO((kName + " is cut here").c_str(), "localhost");
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
  InitializeIO("", "127.0.0.1");  // a socket that has no limit yet
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
  static std::atomic<int> signals;
  std::signal(SIGUSR1, [](int) { ++signals; });  // restarts no receive that has a limit
  std::thread peer([receiver = pthread_self()] {
    while (signals < 1000) pthread_kill(receiver, SIGUSR1);
    answer(9);
  });
  seconds = 60;
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
  const std::string refused = "2000 " + kName + ":  send.";
  EXPECT_EQ(log.take(),
            refused + "|" + refused + "|1000 " + kName + ":  couldn't get send buffer|" + refused);
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

}  // namespace
}  // namespace tally
