// The transport on loopback, against a peer that behaves as badly as a network can. What keeps
// state for the life of a process (ports) or ends it is run in a child.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

// Prints what is logged to the standard error, for the parent of a child to see.
void log_to_stderr() {
  static LogContext context = {};
  context.mask = ~0U;
  context.sink = [](LogMessage* message) {
    std::fprintf(stderr, "%x %s|", message->level, message->message);
    FreeLogMessage(message);
  };
  log_context = &context;
}

// A UDP peer on loopback that the library's agent address is pointed at.
class Transport : public testing::Test {
 protected:
  void SetUp() override {
    reset_faults();
    setenv("ZN_SNMP_TEST_PORT", "1161", 1);
    peer_ = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(peer_, reinterpret_cast<sockaddr*>(&address), size), 0);
    getsockname(peer_, reinterpret_cast<sockaddr*>(&address), &size);
    InitializeIO("transport_test", "127.0.0.1");
    agent_address.sin_port = address.sin_port;
    seconds = 1;
    ASSERT_EQ(SendToIO(fd, reinterpret_cast<const unsigned char*>("ask"), 3), 1);
    client_size_ = sizeof client_;
    char request[8];
    ASSERT_EQ(recvfrom(peer_, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&client_),
                       &client_size_),
              3);
  }
  void TearDown() override {
    CloseUp();
    close(peer_);
    reset_faults();
    zn_pkt_size = 2048;
  }

  void answer(std::size_t size) {
    const Bytes bytes(size, 0x5A);
    ASSERT_EQ(
        sendto(peer_, bytes.data(), size, 0, reinterpret_cast<sockaddr*>(&client_), client_size_),
        static_cast<ssize_t>(size));
  }

  double timed_response(int* result) {
    const auto start = std::chrono::steady_clock::now();
    *result = GetResponse();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  int peer_ = -1;
  sockaddr_in client_ = {};
  socklen_t client_size_ = 0;
};

TEST_F(Transport, ADatagramIsReceivedAsItIs) {
  answer(300);
  answer(1);
  EXPECT_EQ(GetResponse(), 2);
  EXPECT_EQ(packet_len, 300);
  EXPECT_EQ(packet[299], 0x5A);
  EXPECT_EQ(GetResponse(), 2);  // the right one behind a stale one
  EXPECT_EQ(packet_len, 1);
  EXPECT_EQ(received_state, 0);
}

TEST_F(Transport, AnEmptyDatagramIsNoResponse) {
  answer(0);
  int result = 0;
  EXPECT_LT(timed_response(&result), 0.5);
  EXPECT_EQ(result, 1);
}

TEST_F(Transport, ADatagramLargerThanAPacketIsCut) {
  answer(3000);
  EXPECT_EQ(GetResponse(), 2);
  EXPECT_EQ(packet_len, 2048);
  zn_pkt_size = 60000;  // the buffer is not that large
  answer(3000);
  EXPECT_EQ(GetResponse(), 2);
  EXPECT_EQ(packet_len, 2048);
}

TEST_F(Transport, SilenceEndsWithTheAlarm) {
  int result = 0;
  const double waited = timed_response(&result);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(received_state, 1);
  EXPECT_NEAR(waited, 1.0, 0.5);
  EXPECT_EQ(alarm(0), 0U);
}

TEST_F(Transport, AnAlarmBeforeTheReceiveStartsDoesNotHangIt) {
  faults().before_receive = [] {
    while (received_state == 0) usleep(1000);
  };
  int result = 0;
  const double waited = timed_response(&result);
  EXPECT_EQ(result, 1);
  EXPECT_NEAR(waited, 3.0, 0.7);  // the alarm's second, and then the socket's two
}

TEST_F(Transport, OtherSignalsDoNotEndTheWait) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  seconds = 5;
  const pthread_t receiver = pthread_self();
  std::thread peer([&] {
    for (int i = 0; i < 5; ++i) {
      usleep(20000);
      pthread_kill(receiver, SIGUSR1);
    }
    usleep(20000);
    answer(9);
  });
  EXPECT_EQ(GetResponse(), 2);
  EXPECT_EQ(packet_len, 9);
  peer.join();
}

TEST_F(Transport, AnUnreachablePortIsSilence) {
  sockaddr_in nobody = agent_address;
  nobody.sin_port = htons(1);
  agent_address = nobody;
  EXPECT_EQ(SendToIO(fd, packet, 10), 1);
  int result = 0;
  timed_response(&result);
  EXPECT_EQ(result, 1);
}

TEST_F(Transport, WhatCannotBeSent) {
  RecordedLog log;
  EXPECT_EQ(SendToIO(fd, packet, 2049), 0);
  EXPECT_EQ(SendToIO(fd, packet, -1), 0);
  faults().failing_malloc = faults().mallocs + 1;
  EXPECT_EQ(SendToIO(fd, packet, 10), 0);
  faults().no_send = true;
  EXPECT_EQ(SendToIO(fd, packet, 10), 0);
  EXPECT_EQ(log.take(),
            (std::vector<std::string>{"2000 transport_test:  send.", "2000 transport_test:  send.",
                                      "1000 transport_test:  couldn't get send buffer",
                                      "2000 transport_test:  send."}));
}

TEST_F(Transport, WithoutABufferOrASocketThereIsNoResponse) {
  CloseUp();
  EXPECT_EQ(GetResponse(), 1);
  CloseUp();
  faults().failing_malloc = faults().mallocs + 1;
  InitializeIO(nullptr, "127.0.0.1");
  EXPECT_EQ(packet, nullptr);
  EXPECT_EQ(GetResponse(), 1);
}

// Every statement below runs in a process of its own, made anew: ports are kept for its life.
class Start : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// Ends the child with a status that says which demand failed.
void demand(bool holds, int status) {
  if (!holds) _exit(status);
}

const testing::ExitedWithCode kGood(0);
const testing::ExitedWithCode kMinusOne(255);

void initialize(const std::string& program, const std::string& host) {
  log_to_stderr();
  InitializeIO(program.c_str(), host.c_str());
}

void start_well() {
  initialize(std::string(500, 'p'), "localhost");
  demand(std::string(imagename) == std::string(127, 'p'), 1);
  demand(ntohl(agent_address.sin_addr.s_addr) == INADDR_LOOPBACK && hp != nullptr, 2);
  demand(agent_address.sin_port == htons(GetSNMPPort()) && fd >= 0, 3);
  CloseUp();
  initialize("tallyd", "255.255.255.255");
  demand(~agent_address.sin_addr.s_addr == 0, 4);
  CloseUp();
  _exit(0);
}

TEST_F(Start, HostsAndNames) {
  EXPECT_EXIT(start_well(), kGood, "");
  EXPECT_EXIT(initialize("tallyd", "no.such.host.invalid"), kMinusOne,
              HasSubstr("2000 no.such.host.invalid:  host unknown.\n|"));
  EXPECT_EXIT(initialize("tallyd", ""), kMinusOne, HasSubstr("2000 :  host unknown.\n|"));
  EXPECT_EXIT(initialize("tallyd", std::string(100000, 'h')), kMinusOne, HasSubstr("2000 hhhh"));
  EXPECT_EXIT(
      {
        faults().no_socket = true;
        initialize("tallyd", "127.0.0.1");
      },
      kMinusOne, HasSubstr("2000 tallyd:  unable to connect to socket.\n|"));
}

struct PortCase {
  const char* snmp_variable;
  const char* trap_variable;
  bool services;
  int snmp_port;
  int trap_port;
  const char* log;
};

void look_up_ports(const PortCase& c) {
  log_to_stderr();
  unsetenv("ZN_SNMP_TEST_PORT");
  unsetenv("ZN_TRAP_TEST_PORT");
  if (c.snmp_variable != nullptr) setenv("ZN_SNMP_TEST_PORT", c.snmp_variable, 1);
  if (c.trap_variable != nullptr) setenv("ZN_TRAP_TEST_PORT", c.trap_variable, 1);
  faults().no_services = !c.services;
  for (int i = 0; i < 2; ++i) {
    demand(GetSNMPPort() == c.snmp_port && GetSNMPTrapPort() == c.trap_port, 1 + i);
    setenv("ZN_SNMP_TEST_PORT", "99", 1);  // too late
    setenv("ZN_TRAP_TEST_PORT", "99", 1);
  }
  _exit(0);
}

TEST_F(Start, PortsAreLookedUpOnce) {
  const PortCase cases[] = {
      {"1161", nullptr, true, 1161, 1162,
       "80 GetSNMPPort: snmp port is 1161 from getenv(\"ZN_SNMP_TEST_PORT\")\n|"
       "40000 GetSNMPTrapPort: trap port is 1162 from getenv(\"ZN_SNMP_TEST_PORT\") + 1\n|"},
      {"1161", "3000", true, 1161, 3000,
       "80 GetSNMPPort: snmp port is 1161 from getenv(\"ZN_SNMP_TEST_PORT\")\n|"
       "40000 GetSNMPTrapPort: trap port is 3000 from getenv(\"ZN_TRAP_TEST_PORT\")\n|"},
      {nullptr, nullptr, true, 161, 162,
       "80 GetSNMPPort: snmp port is 161 from snmp in /etc/services\n|"
       "40000 GetSNMPTrapPort: trap port is 162 from snmp-trap in /etc/services\n|"},
      {nullptr, nullptr, false, 161, 162,
       "1000 GetSNMPPort: no snmp entry in /etc/services; |"
       "1000 snmp port is 161 from #define SNMP_PORT\n|"
       "40000 GetSNMPTrapPort: no snmp-trap entry in /etc/services; |"
       "40000 trap port is 162 from #define SNMP_TRAP_PORT\n|"},
  };
  for (const PortCase& c : cases) EXPECT_EXIT(look_up_ports(c), kGood, HasSubstr(c.log));
}

void open_trap_sockets() {
  log_to_stderr();
  setenv("ZN_TRAP_TEST_PORT", "51162", 1);
  const int trap = OpenTrapSocket();
  sockaddr_in bound = {};
  socklen_t size = sizeof bound;
  getsockname(trap, reinterpret_cast<sockaddr*>(&bound), &size);
  demand(bound.sin_port == htons(51162), 1);
  demand(OpenTrapSocket() == -1, 2);
  faults().no_socket = true;
  demand(OpenTrapSocket() == -1, 3);
  _exit(0);
}

TEST_F(Start, TheTrapSocket) {
  EXPECT_EXIT(open_trap_sockets(), kGood,
              HasSubstr("2000 traprcv:  bind|2000 OpenTrapSocket: socket() failed\n|"));
}

}  // namespace
}  // namespace tally
