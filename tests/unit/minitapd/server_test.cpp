// How the agent's binary starts, counts traffic, takes calls and misbehaves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "agent_process.h"

namespace minitapd::testing {
namespace {

using namespace std::chrono_literals;

struct FaultCase {
  std::string action;  // and its other members
  std::string stream;  // hexadecimal
  bool closes = false;
  std::chrono::seconds lasts{0};
  int times = 1;  // that the stream comes
};

TEST(Server, StrikesOneCallOfOneClient) {
  const std::string header = "00000064 00000001 00000000 00000000 00000000 00000000";
  const std::string refusal = "80000018" + header.substr(0, 44);
  const std::string counters = "00000000 00000002 00000000 00000003";
  const std::string whole = "8000002c" + header + "00000001" + counters;
  const std::string foreign = "8000002c 00000065" + header.substr(8) + "00000001" + counters;
  const FaultCase cases[] = {
      {R"("no_answer")", ""},
      {R"("close")", "", true},
      {R"("system_err")", refusal + "00000005"},
      {R"("decode_err")", refusal + "00000004"},
      {R"("no_proc")", refusal + "00000003"},
      {R"("no_prog")", refusal + "00000001"},
      {R"("weak_auth")", "80000014 00000064 00000001 00000001 00000001 00000005"},
      {R"("truncate", "bytes": 26)", "8000001a" + header + "0000"},
      {R"("truncate", "bytes": 0)", "80000000"},
      {R"("cut", "bytes": 3)", "800000", true},
      {R"("cut", "bytes": 99)", whole, true},
      {R"("raw", "hex": "aabbcc")", "8000001b" + header + "aabbcc"},
      {R"("stream", "hex": "ff00")", "ff00"},
      {R"("drip", "bytes": 24, "seconds": 1)", whole, false, 1s},
      {R"("delay", "seconds": 1)", whole, false, 1s},
      {R"("fragments", "bytes": 24)", "00000018" + header + "80000014 00000001" + counters},
      {R"("wrong_xid", "count": 2, "seconds": 1)", foreign, false, 1s, 2},
      {R"("wrong_xid", "count": 100000)", foreign, false, 0s, 100000},  // more than a socket takes
      {R"("status", "value": 4294967295)", "8000002c" + header + "ffffffff" + counters},
  };
  std::string faults = R"({"procedure": 9, "action": "drip", "bytes": 1, "seconds": 0.01})";
  int call = 0;
  for (const FaultCase& c : cases) {
    faults += R"(, {"procedure": 184, "call": )" + std::to_string(++call) + R"(, "action": )" +
              c.action + "}";
  }
  const std::string script =
      R"({"pdist_totals": [{"index": 7, "status": 1, "counters": [2, 3]}], "faults": [)";
  const AgentProcess agent("--script " + write_file("faults.json", script + faults + "]}"));
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.action);
    const Connection victim(agent);
    const auto begin = std::chrono::steady_clock::now();
    const auto passed = [begin] { return std::chrono::steady_clock::now() - begin; };
    victim.send(call_record(184, {7}));
    Connection(agent).send(call_record(9, {0, 2}));  // goes away before it is answered
    EXPECT_EQ(Connection(agent).call(0), Words{0});
    EXPECT_LT(passed(), 10s) << "another client had to wait";
    const Frame stream = bytes(c.stream);
    for (int i = 0; i < c.times; ++i) ASSERT_EQ(victim.receive(stream.size()), stream);
    EXPECT_GE(passed(), c.lasts);
    if (c.closes) {
      EXPECT_TRUE(victim.at_end());
    } else {
      EXPECT_EQ(victim.call(0), Words{0}) << "the connection is as before";
    }
  }
  EXPECT_EQ(Connection(agent).call(184, {7}), (Words{1, 0, 2, 0, 3})) << "no fault is left";
}

TEST(Server, TakesCallsInAnyPiecesAndRefusesWhatIsNone) {
  const AgentProcess agent("--script " + write_file("calls.json", "{}"));
  const Connection client(agent);
  Frame two = call_record(0);
  two.insert(two.end(), two.begin(), two.begin() + 44);
  const Words answers = {0x8000001c, 100, 1, 0, 0, 0, 0, 0, 0x8000001c, 100, 1, 0, 0, 0, 0, 0};
  for (auto cut = two.begin() + 1; cut < two.end(); cut += 3) {
    client.send({two.begin(), cut});
    EXPECT_EQ(Connection(agent).call(0), Words{0}) << "served while half a call waits";
    client.send({cut, two.end()});
    ASSERT_EQ(client.receive_words(16), answers);
  }
  const std::pair<Frame, Words> refused[] = {
      {call_record(0, {}, 1), {0x80000018, 100, 1, 0, 0, 0, 1}},               // program
      {call_record(0, {}, 99999, 2), {0x80000020, 100, 1, 0, 0, 0, 2, 1, 1}},  // version
      {call_record(2), {0x80000018, 100, 1, 0, 0, 0, 3}},                      // procedure
      {call_record(11), {0x80000018, 100, 1, 0, 0, 0, 4}},                     // no argument
      {call_record(11, {1, 0xffffffff}), {0x80000018, 100, 1, 0, 0, 0, 4}},    // an endless address
  };
  for (const auto& [call, refusal] : refused) {
    client.send(call);
    EXPECT_EQ(client.receive_words(refusal.size()), refusal);
  }
  client.send(bytes("ffffffff 00000000"));
  EXPECT_TRUE(client.at_end()) << "a record longer than any call";
}

TEST(Server, CountsACaptureFile) {
  // Big-endian, Ethernet; one frame, of which the first 22 of 122 bytes were captured.
  const Frame file = bytes(
      "a1b2c3d4 0002 0004 00000000 00000000 0000ffff 00000001 00000000 00000000 00000016 0000007a"
      "ffffffffffff 02000000000a 0806 0001 0800 0604 0001");
  const AgentProcess agent("--control pdist:6:mine --read " +
                           write_file("one.pcap", {file.begin(), file.end()}));
  EXPECT_EQ(Connection(agent).call(26, {6, 1, 3, 1}), (Words{1, 1, 6, 10, 0, 1, 0, 126, 3}));
}

TEST(Server, CountsAnInterfaceOfAnotherNetworkNamespace) {
  const std::string name = "minitapd_" + std::to_string(::getpid());
  const auto shell = [](const std::string& command) { return std::system(command.c_str()); };
  if (shell("ip netns add " + name) != 0) GTEST_SKIP() << "needs the right to make a namespace";
  EXPECT_EQ(shell("ip -n " + name + " link set lo up"), 0);
  const AgentProcess agent("--interface lo --capture-netns /run/netns/" + name);
  EXPECT_EQ(shell("ip netns exec " + name + " bash -c 'echo 123456789 >/dev/udp/127.0.0.1/161'"),
            0);
  EXPECT_EQ(shell("ip netns del " + name), 0);  // the agent still has it
  const Connection client(agent);
  const auto snmp = [&client] { return client.call(26, {1, 134, 3, 1}); };
  // Index 135 is ether2.ip.udp.snmp; a frame of 52 bytes, padded, with its check sequence.
  const Words expected = {1, 1, 1, 135, 0, 1, 0, 64, 7};
  for (int i = 0; i < 100 && snmp() != expected; ++i) std::this_thread::sleep_for(20ms);
  EXPECT_EQ(snmp(), expected);
}

TEST(Server, RefusesABadStart) {
  const std::string path = write_file("start.json", "{}");
  const AgentProcess other("--script " + path);
  const std::pair<std::string, int> cases[] = {
      {"--script /nonexistent", 1},
      {"--script " + path + " --listen ::1", 1},
      {"--script " + path + " --port " + std::to_string(other.port()), 1},
      {"--read " + path, 1},
      {"--interface nonexistent0", 1},
      {"--interface lo --capture-netns /nonexistent", 1},
      {"--interface lo --control host:0:x", 2},
      {"--interface lo --control host:1:a --control host:1:b", 1},
  };
  for (const auto& [arguments, status] : cases) {
    const int ended = std::system(("timeout 5 " MINITAPD_BINARY " " + arguments).c_str());
    EXPECT_EQ(WEXITSTATUS(ended), status) << arguments;
  }
}

}  // namespace
}  // namespace minitapd::testing
