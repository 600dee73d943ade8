// The transport on loopback, against a peer that behaves as badly as a network can. What keeps
// state for the life of a process (ports) or ends it is run in a child. Silence, stale answers and
// foreign ones are in the end-to-end tests of the supervisor.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "ber_vectors.h"
#include "recorded_log.h"
#include "snmp/snmp.h"
#include "system_faults.h"

namespace tally {
namespace {

using namespace snmpio;

using testing::HasSubstr;

// A UDP peer on loopback that the library's agent address is pointed at.
class Transport : public testing::Test {
 protected:
  void SetUp() override {
    setenv("ZN_SNMP_TEST_PORT", "1161", 1);
    peer_ = socket(AF_INET, SOCK_DGRAM, 0);
    InitializeIO("transport_test", "127.0.0.1");
    seconds = 1;
    sockaddr_in address = agent_address;
    address.sin_port = 0;
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(peer_, reinterpret_cast<sockaddr*>(&address), size), 0);
    getsockname(peer_, reinterpret_cast<sockaddr*>(&address), &size);
    agent_address.sin_port = address.sin_port;
    ASSERT_EQ(SendToIO(fd, reinterpret_cast<const unsigned char*>("ask"), 3), 1);
    char request[8];
    ASSERT_EQ(recvfrom(peer_, request, sizeof request, 0, client(), &client_size_), 3);
  }
  void TearDown() override {
    CloseUp();
    close(peer_);
    faults = {};
    zn_pkt_size = 2048;
  }

  void answer(std::size_t size) {
    const Bytes bytes(size, 0x5A);
    ASSERT_EQ(sendto(peer_, bytes.data(), size, 0, client(), client_size_),
              static_cast<ssize_t>(size));
  }

  sockaddr* client() { return reinterpret_cast<sockaddr*>(&client_); }

  // Expects that there is no response, after so many seconds.
  static void expect_silence(double wanted, double tolerance = 0.5) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetResponse(), 1);
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_NEAR(waited.count(), wanted, tolerance);
    EXPECT_EQ(alarm(0), 0U);
  }

  int peer_ = -1;
  sockaddr_in client_ = {};
  socklen_t client_size_ = sizeof client_;
};

TEST_F(Transport, ADatagramIsEmptyOrCut) {
  answer(0);
  expect_silence(0);
  for (const std::int32_t limit : {2048, 60000}) {  // the buffer is not that large
    zn_pkt_size = limit;
    answer(3000);
    EXPECT_EQ(GetResponse(), 2);
    EXPECT_EQ(packet_len, 2048);
  }
}

TEST_F(Transport, AnAlarmThatDoesNotReachTheReceiveDoesNotHangIt) {
  expect_silence(1);
  EXPECT_EQ(received_state, 1);
  // It comes before the receive has started or, as here, afterwards.
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
  expect_silence(2);  // the socket's own limit
  pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
}

TEST_F(Transport, OtherSignalsDoNotEndTheWait) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  std::thread peer([this, receiver = pthread_self()] {
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
  const std::string refused = "2000 transport_test:  send.";
  EXPECT_EQ(log.take(),
            (std::vector{refused, refused,
                         std::string("1000 transport_test:  couldn't get send buffer"), refused}));
  CloseUp();
  CloseUp();
  expect_silence(0);
  faults = {1, 0};
  InitializeIO(nullptr, "127.0.0.1");
  EXPECT_EQ(packet, nullptr);
  expect_silence(0, 2.5);
}

// From here on no socket can be made and no file opened.
void open_no_more_files() {
  static rlimit usual;
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none = {0, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  std::atexit([] { setrlimit(RLIMIT_NOFILE, &usual); });  // the leak check at the end opens some
}

// Begins a process of its own, made anew, for ports are kept for the life of one. It prints what is
// logged to the standard error, for the parent to see.
void begin(bool with_files, const char* snmp_port, const char* trap_port) {
  static LogContext context = {};
  context.mask = ~0U;
  context.sink = [](LogMessage* message) {
    std::fprintf(stderr, "%x %s|", message->level, message->message);
    FreeLogMessage(message);
  };
  log_context = &context;
  const std::pair<const char*, const char*> variables[] = {{"ZN_SNMP_TEST_PORT", snmp_port},
                                                           {"ZN_TRAP_TEST_PORT", trap_port}};
  for (const auto& [name, value] : variables) {
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  }
  if (!with_files) open_no_more_files();
}

void initialize(bool with_files, const char* host) {
  begin(with_files, nullptr, nullptr);
  InitializeIO("tallyd", host);
}

// Such a process ends with a status that says which demand failed.
void demand(bool holds, int status) {
  if (!holds) _exit(status);
}

void start_well() {
  begin(true, "1161", "51162");
  InitializeIO(std::string(500, 'p').c_str(), "localhost");
  demand(std::string(imagename) == std::string(127, 'p'), 1);
  demand(ntohl(agent_address.sin_addr.s_addr) == INADDR_LOOPBACK && hp != nullptr, 2);
  demand(agent_address.sin_port == htons(1161) && fd >= 0, 3);
  sockaddr_in bound = {};
  socklen_t size = sizeof bound;
  getsockname(OpenTrapSocket(), reinterpret_cast<sockaddr*>(&bound), &size);
  demand(bound.sin_port == htons(51162), 5);
  demand(OpenTrapSocket() == -1, 6);
  open_no_more_files();
  demand(OpenTrapSocket() == -1, 7);
  _exit(0);
}

void look_up_ports(bool with_files, const char* snmp_variable, const char* trap_variable,
                   int snmp_port, int trap_port) {
  begin(with_files, snmp_variable, trap_variable);
  for (int i = 0; i < 2; ++i) {
    demand(GetSNMPPort() == snmp_port && GetSNMPTrapPort() == trap_port, 1 + i);
    setenv("ZN_SNMP_TEST_PORT", "99", 1);  // too late
    setenv("ZN_TRAP_TEST_PORT", "99", 1);
  }
  _exit(0);
}

TEST(Start, InAProcessOfItsOwn) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const testing::ExitedWithCode good(0);
  const testing::ExitedWithCode minus_one(255);
  const char* const none = nullptr;
  EXPECT_EXIT(start_well(), good,
              HasSubstr("2000 traprcv:  bind|2000 OpenTrapSocket: socket() failed\n|"));
  EXPECT_EXIT(initialize(true, "no.such.host.invalid"), minus_one,
              HasSubstr("2000 no.such.host.invalid:  host unknown.\n|"));
  EXPECT_EXIT(initialize(false, "127.0.0.1"), minus_one,
              HasSubstr("2000 tallyd:  unable to connect to socket.\n|"));
  EXPECT_EXIT(
      look_up_ports(true, "1161", none, 1161, 1162), good,
      HasSubstr("80 GetSNMPPort: snmp port is 1161 from getenv(\"ZN_SNMP_TEST_PORT\")\n|"
                "40000 GetSNMPTrapPort: trap port is 1162 from getenv(\"ZN_SNMP_TEST_PORT\") + 1"));
  EXPECT_EXIT(
      look_up_ports(true, "1161", "3000", 1161, 3000), good,
      HasSubstr("40000 GetSNMPTrapPort: trap port is 3000 from getenv(\"ZN_TRAP_TEST_PORT\")\n|"));
  EXPECT_EXIT(look_up_ports(true, none, none, 161, 162), good,
              HasSubstr("80 GetSNMPPort: snmp port is 161 from snmp in /etc/services\n|"
                        "40000 GetSNMPTrapPort: trap port is 162 from snmp-trap in /etc/services"));
  EXPECT_EXIT(look_up_ports(false, none, none, 161, 162), good,
              HasSubstr("1000 GetSNMPPort: no snmp entry in /etc/services; |"
                        "1000 snmp port is 161 from #define SNMP_PORT\n|"
                        "40000 GetSNMPTrapPort: no snmp-trap entry in /etc/services; |"
                        "40000 trap port is 162 from #define SNMP_TRAP_PORT\n|"));
}

}  // namespace
}  // namespace tally
