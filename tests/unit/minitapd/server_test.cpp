// How the agent's binary behaves towards its clients: capture files, faults, hostile bytes, its
// beginning and its end.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "agent_process.h"
#include "frames.h"
#include "minitapd/procedures.h"
#include "stub_reply.h"

namespace minitapd {
namespace {

using namespace std::chrono_literals;
using testing::AgentProcess;
using testing::Client;
using testing::Frame;
using testing::Reply;
using testing::TempFile;

std::string bytes_of(const tapd_bytes& wire) {
  return {reinterpret_cast<const char*>(wire.tapd_bytes_val), wire.tapd_bytes_len};
}

struct Walk {
  std::map<std::string, std::array<std::uint64_t, 7>> hosts;
  std::vector<std::size_t> batches;
};

// Reads the host table as a poller does: from the last row of a batch to the next.
Walk walk_hosts(const Client& client, int index) {
  Walk walk;
  std::string last;
  for (;;) {
    const tapd_bytes start{static_cast<u_int>(last.size()), reinterpret_cast<u_char*>(last.data())};
    const Reply reply(host_table_get_1, xdr_tapd_host_rows, {index, start, 100, 3}, client);
    EXPECT_EQ(reply.status(), RPC_SUCCESS);
    const auto& rows = reply->rows;
    walk.batches.push_back(rows.rows_len);
    if (rows.rows_len == 0 || walk.batches.size() > 100) return walk;
    for (u_int i = 0; i < rows.rows_len; ++i) {
      const tapd_host_row& row = rows.rows_val[i];
      const std::string address = bytes_of(row.hostAddress);
      EXPECT_LT(last, address) << "rows ascend";
      last = address;
      walk.hosts[address] = {row.hostInPkts,          row.hostOutPkts,   row.hostInOctets,
                             row.hostOutOctets,       row.hostOutErrors, row.hostOutBroadcastPkts,
                             row.hostOutMulticastPkts};
    }
  }
}

void write_capture(const std::string& path, int link_type, const std::vector<Frame>& frames) {
  pcap_t* dead = pcap_open_dead(link_type, 65535);
  pcap_dumper_t* file = pcap_dump_open(dead, path.c_str());
  ASSERT_NE(file, nullptr);
  for (const Frame& frame : frames) {
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(frame.size());
    header.len = header.caplen + 100;  // cut by the capture: octets are those of the wire
    pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.data());
  }
  pcap_dump_close(file);
  pcap_close(dead);
}

TEST(Server, ServesTheCountsOfACaptureFile) {
  const TempFile capture("250.pcap");
  std::vector<Frame> frames;
  constexpr int kStations = 249;  // with the broadcast address 250 rows: three batches
  for (int i = 0; i < kStations; ++i) {
    Frame frame =
        testing::ethernet(testing::kBroadcast, testing::kStationA, "0806 0001 0800 0604 0001");
    frame[11] = static_cast<std::uint8_t>(i);
    frames.push_back(frame);
  }
  write_capture(capture.path(), DLT_EN10MB, frames);
  AgentProcess agent({"--read", capture.path(), "--port", "0", "--control", "host:5:LocalMgr",
                      "--control", "pdist:6:someone"});
  const Client client = agent.connect();
  ASSERT_NE(client, nullptr);
  const Walk walk = walk_hosts(client, 5);
  EXPECT_EQ(walk.batches, (std::vector<std::size_t>{100, 100, 50, 0}));
  ASSERT_EQ(walk.hosts.size(), 250U);
  constexpr std::uint64_t kOctets = 22 + 100 + 4;
  for (const auto& [address, counters] : walk.hosts) {
    using Counters = std::array<std::uint64_t, 7>;
    EXPECT_EQ(counters, address == "\xff\xff\xff\xff\xff\xff"
                            ? (Counters{kStations, 0, kStations * kOctets, 0, 0, 0, 0})
                            : (Counters{0, 1, 0, kOctets, 0, 1, 0}));
  }
  const Reply dist(pdist_table_get_1, xdr_tapd_pdist_rows, {6, 0, 3, 100}, client);
  ASSERT_EQ(dist->rows.rows_len, 2U);
  EXPECT_EQ(dist->rows.rows_val[0].protocolDirLocalIndex, 1);
  EXPECT_EQ(dist->rows.rows_val[1].protocolDirLocalIndex, 10);
  EXPECT_EQ(dist->rows.rows_val[1].protocolDistStatsOctets, kStations * kOctets);
  const Reply totals(pdist_source_totals_get_1, xdr_tapd_pdist_totals_reply, 6, client);
  EXPECT_EQ(totals->status, 0);
  EXPECT_EQ(totals->total_pkts, std::uint64_t{kStations});
  const Reply control(pdist_control_getnext_1, xdr_tapd_pdist_control_reply, {0, TAPD_REQUEST_NEXT},
                      client);
  EXPECT_STREQ(control->protocolDistControlOwner, "someone");
  const Reply none(matrix_control_getnext_1, xdr_tapd_matrix_control_reply, {0, TAPD_REQUEST_NEXT},
                   client);
  EXPECT_NE(none->status, 0) << "--control replaces the default rows";
}

struct FaultCase {
  std::string_view action;  // and its other members
  clnt_stat outcome;
};

void PrintTo(const FaultCase& c, std::ostream* out) {
  *out << c.action;
}

class ServerFault : public ::testing::TestWithParam<FaultCase> {};

// The second call is struck; afterwards the agent serves others, and had served them meanwhile.
TEST_P(ServerFault, StrikesOneCallOfOneClient) {
  const TempFile script("fault.json",
                        R"({"host": [{"index": 1, "address": "02:00:00:00:00:01"}], "faults": [
                        {"procedure": 11, "call": 2, "action": )" +
                            std::string(GetParam().action) + "}]}");
  AgentProcess agent({"--script", script.path(), "--port", "0"});
  const Client victim = agent.connect(1s);
  const Client witness = agent.connect();
  ASSERT_NE(victim, nullptr);
  ASSERT_NE(witness, nullptr);
  const auto call = [](const Client& client) {
    const Reply reply(host_table_get_1, xdr_tapd_host_rows, {1, {}, 100, 3}, client);
    if (reply.status() == RPC_SUCCESS) {
      EXPECT_LE(reply->rows.rows_len, 1U);
    }
    return reply.status();
  };
  EXPECT_EQ(call(victim), RPC_SUCCESS);
  clnt_stat outcome = RPC_SUCCESS;
  std::thread struck([&] { outcome = call(victim); });
  std::this_thread::sleep_for(100ms);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(call(witness), RPC_SUCCESS);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
  struck.join();
  EXPECT_EQ(outcome, GetParam().outcome);
  EXPECT_EQ(call(agent.connect()), RPC_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(
    All, ServerFault,
    ::testing::Values(FaultCase{R"("no_answer")", RPC_TIMEDOUT},
                      FaultCase{R"("close")", RPC_CANTRECV},
                      FaultCase{R"("system_err")", RPC_SYSTEMERROR},
                      FaultCase{R"("decode_err")", RPC_CANTDECODEARGS},
                      FaultCase{R"("no_proc")", RPC_PROCUNAVAIL},
                      FaultCase{R"("no_prog")", RPC_PROGUNAVAIL},
                      FaultCase{R"("weak_auth")", RPC_AUTHERROR},
                      FaultCase{R"("truncate", "bytes": 40)", RPC_CANTDECODERES},
                      FaultCase{R"("cut", "bytes": 40)", RPC_CANTRECV},
                      FaultCase{R"("raw", "hex": "00000000")", RPC_SUCCESS},
                      FaultCase{R"("raw", "hex": "ffffffff")", RPC_CANTDECODERES},
                      FaultCase{R"("stream", "hex": "00")", RPC_TIMEDOUT},
                      FaultCase{R"("drip", "bytes": 40, "seconds": 0.05)", RPC_SUCCESS},
                      FaultCase{R"("drip", "bytes": 40, "seconds": 2)", RPC_TIMEDOUT},
                      FaultCase{R"("delay", "seconds": 0.25)", RPC_SUCCESS},
                      FaultCase{R"("fragments", "bytes": 5)", RPC_SUCCESS},
                      FaultCase{R"("wrong_xid", "count": 2, "seconds": 0.1)", RPC_TIMEDOUT},
                      FaultCase{R"("status", "value": 4294967295)", RPC_CANTDECODERES}));

TEST(Server, EndsWhenAFaultOrASignalWantsIt) {
  const TempFile script("end.json", R"({"faults": [{"procedure": 0, "action": "exit"}]})");
  AgentProcess agent({"--script", script.path(), "--port", "0"});
  const Client client = agent.connect();
  int result = 0;
  EXPECT_EQ(agent_null_1(nullptr, &result, client.get()), RPC_CANTRECV);
  EXPECT_EQ(agent.wait(), 0);
  for (const int number : {SIGTERM, SIGINT}) {
    AgentProcess other({"--script", script.path(), "--port", "0"});
    const Client idle = other.connect();
    ASSERT_NE(idle, nullptr);
    other.signal(number);
    EXPECT_EQ(other.wait(), 0);
  }
}

TEST(Server, RefusesABadStart) {
  const TempFile script("start.json", "{}");
  const TempFile capture("wlan.pcap");
  write_capture(capture.path(), DLT_IEEE802_11, {});
  AgentProcess first({"--script", script.path(), "--port", "0"});
  const std::string taken = std::to_string(first.port());
  const struct {
    std::vector<std::string> arguments;
    int status;
  } cases[] = {
      {{}, 2},
      {{"--script", script.path(), "--interface", "lo"}, 2},
      {{"--script", script.path(), "--port", "65536"}, 2},
      {{"--script", script.path(), "--capture-netns", "/proc/self/ns/net"}, 2},
      {{"--interface", "lo", "--control", "vlans:1:x"}, 2},
      {{"--interface", "lo", "--control", "host:0:x"}, 2},
      {{"--interface", "lo", "--control", "host:1"}, 2},
      {{"--script", script.path(), "--port", taken}, 1},
      {{"--script", script.path(), "--listen", "::1"}, 1},
      {{"--script", "/nonexistent"}, 1},
      {{"--read", script.path(), "--port", "0"}, 1},
      {{"--read", capture.path(), "--port", "0"}, 1},
      {{"--interface", "nonexistent0", "--port", "0"}, 1},
      {{"--interface", "lo", "--capture-netns", "/nonexistent", "--port", "0"}, 1},
      {{"--interface", "lo", "--control", "host:1:a", "--control", "host:1:b"}, 1},
      {{"--version"}, 0},
      {{"--help"}, 0},
      {{"--protocols"}, 0},
  };
  for (const auto& c : cases) {
    AgentProcess agent(c.arguments);
    EXPECT_EQ(agent.wait(), c.status) << ::testing::PrintToString(c.arguments);
  }
}

std::string receive(const UniqueFd& socket, std::size_t size) {
  std::string out;
  std::array<char, 4096> buffer{};
  while (out.size() < size) {
    const ssize_t n = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    if (n <= 0) break;
    out.append(buffer.data(), static_cast<std::size_t>(n));
  }
  return out;
}

Frame call_record(std::uint8_t xid, std::string_view program_version_procedure) {
  return testing::bytes("80000028 000000" + std::string(1, "0123456789"[xid / 10]) +
                        std::string(1, "0123456789"[xid % 10]) + " 00000000 00000002 " +
                        std::string(program_version_procedure) +
                        "00000000 00000000 00000000 00000000");
}

// A call may come in any pieces, and several at once; what is no call ends its connection only.
TEST(Server, TakesCallsInAnyPiecesAndSurvivesNoise) {
  const TempFile script("noise.json", "{}");
  AgentProcess agent({"--script", script.path(), "--port", "0"});
  const Frame call = call_record(1, "0001869f 00000001 00000000");
  Frame two = call;
  two.insert(two.end(), call.begin(), call.end());
  constexpr std::size_t kAnswer = 32;
  const UniqueFd slow = agent.connect_socket();
  for (std::size_t cut = 1; cut < two.size(); cut += 3) {
    ASSERT_EQ(::send(slow.get(), two.data(), cut, MSG_NOSIGNAL), static_cast<ssize_t>(cut));
    // Somebody else is served while half a call waits.
    const UniqueFd other = agent.connect_socket();
    ASSERT_GT(::send(other.get(), two.data(), two.size(), MSG_NOSIGNAL), 0);
    ASSERT_EQ(receive(other, 2 * kAnswer).size(), 2 * kAnswer) << cut;
    ASSERT_GT(::send(slow.get(), two.data() + cut, two.size() - cut, MSG_NOSIGNAL), 0);
    ASSERT_EQ(receive(slow, 2 * kAnswer).size(), 2 * kAnswer) << cut;
  }
  const struct {
    std::string_view label;
    Frame bytes;
    std::size_t answer;  // 0 = the connection ends
  } cases[] = {
      {"another program", call_record(1, "00000001 00000001 00000000"), 28},
      {"another version", call_record(1, "0001869f 00000002 00000000"), 36},
      {"no such procedure", call_record(1, "0001869f 00000001 00000002"), 28},
      {"a key that is missing", call_record(1, "0001869f 00000001 0000000b"), 28},
      {"a record longer than any call", testing::bytes("ffffffff 00000000"), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const UniqueFd socket = agent.connect_socket();
    ASSERT_GT(::send(socket.get(), c.bytes.data(), c.bytes.size(), MSG_NOSIGNAL), 0);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(receive(socket, std::max<std::size_t>(c.answer, 1)).size(), c.answer);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
  }
  // A byte list that claims four thousand million elements.
  Frame greedy = call_record(1, "0001869f 00000001 0000000b");
  greedy[3] = 0x28 + 8;
  const Frame key = testing::bytes("00000001 ffffffff");
  greedy.insert(greedy.end(), key.begin(), key.end());
  const UniqueFd socket = agent.connect_socket();
  ASSERT_GT(::send(socket.get(), greedy.data(), greedy.size(), MSG_NOSIGNAL), 0);
  EXPECT_EQ(receive(socket, 28).size(), 28U);
  int result = 0;
  EXPECT_EQ(agent_null_1(nullptr, &result, agent.connect().get()), RPC_SUCCESS);
}

TEST(Server, TracesEveryRequest) {
  const TempFile script("trace.json", "{}");
  const TempFile trace("trace.txt", "before\n");
  AgentProcess agent({"--script", script.path(), "--port", "0", "--trace", trace.path()});
  const Client client = agent.connect();
  std::string address("\x02\xff", 2);
  const tapd_bytes bytes{2, reinterpret_cast<u_char*>(address.data())};
  int result = 0;
  (void)agent_null_1(nullptr, &result, client.get());
  (void)Reply(host_table_get_1, xdr_tapd_host_rows, {1, bytes, 100, 3}, client);
  (void)Reply(matrix_table_get_1, xdr_tapd_matrix_rows, {1, bytes, {}, 100, 3, 0}, client);
  (void)Reply(prio_table_get_1, xdr_tapd_prio_row_reply, {1, -1, 2}, client);
  (void)Reply(vlan_table_get_1, xdr_tapd_vlan_row_reply, {1, -1, 2}, client);
  (void)Reply(nlmatrix_table_get_1, xdr_tapd_nlmatrix_rows, {9, 1, 7, 2, {}, bytes, 3, 4, 5, 6},
              client);
  (void)Reply(pdist_source_totals_get_1, xdr_tapd_pdist_totals_reply, 4, client);
  EXPECT_EQ(trace.text(),
            "before\n0 agent_null\n"
            "11 host_table_get index=1 address=02:ff count=100 mode=3\n"
            "18 matrix_table_get index=1 source=02:ff dest= count=100 mode=3 direction=0\n"
            "81 prio_table_get index=1 id=-1 request=2\n"
            "78 vlan_table_get index=1 id=4294967295 request=2\n"
            "37 nlmatrix_table_get index=9 local_index=7 source= dest=02:ff count=6 mode=3 "
            "time_mark=1 reserved_1=2 reserved_2=4 reserved_3=5\n"
            "184 pdist_source_totals_get index=4\n");
}

// A process in a network namespace of its own that sends datagrams to itself when told to.
class Neighbour {
 public:
  Neighbour() {
    if (::pipe(ready_.data()) != 0 || ::pipe(go_.data()) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) live();
    char byte = 0;
    usable_ = ::read(ready_[0], &byte, 1) == 1 && byte == 'y';
  }
  Neighbour(const Neighbour&) = delete;
  Neighbour& operator=(const Neighbour&) = delete;
  ~Neighbour() {
    ::close(go_[1]);
    (void)::waitpid(pid_, nullptr, 0);
  }
  [[nodiscard]] bool usable() const { return usable_; }
  [[nodiscard]] std::string netns() const { return "/proc/" + std::to_string(pid_) + "/ns/net"; }
  void send_datagrams(char count) const { (void)!::write(go_[1], &count, 1); }

 private:
  [[noreturn]] void live() {
    ::close(go_[1]);
    const int socket = ::unshare(CLONE_NEWNET) == 0 ? ::socket(AF_INET, SOCK_DGRAM, 0) : -1;
    ifreq request{};
    std::snprintf(request.ifr_name, sizeof request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(161);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = socket >= 0 && ::ioctl(socket, SIOCSIFFLAGS, &request) == 0 &&
                    ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    (void)!::write(ready_[1], ok ? "y" : "n", 1);
    char count = 0;
    while (::read(go_[0], &count, 1) == 1) {
      for (; count > 0; --count) {
        (void)::sendto(socket, "0123456789", 10, 0, reinterpret_cast<sockaddr*>(&address),
                       sizeof address);
      }
    }
    ::_exit(0);
  }
  std::array<int, 2> ready_{};
  std::array<int, 2> go_{};
  pid_t pid_ = -1;
  bool usable_ = false;
};

TEST(Server, CountsAnInterfaceInAnotherNetworkNamespace) {
  const Neighbour neighbour;
  if (!neighbour.usable()) GTEST_SKIP() << "needs the right to make a network namespace";
  AgentProcess agent({"--interface", "lo", "--capture-netns", neighbour.netns(), "--port", "0"});
  ASSERT_NE(agent.port(), 0);
  const Client client = agent.connect();
  ASSERT_NE(client, nullptr) << "it serves in the namespace that it was started in";
  neighbour.send_datagrams(50);
  std::uint64_t pkts = 0;
  std::uint64_t octets = 0;
  for (int attempt = 0; attempt < 100 && pkts < 50; ++attempt) {
    std::this_thread::sleep_for(20ms);
    const Reply dist(pdist_table_get_1, xdr_tapd_pdist_rows, {1, 0, 3, 100}, client);
    for (u_int i = 0; i < dist->rows.rows_len; ++i) {
      const tapd_pdist_row& row = dist->rows.rows_val[i];
      if (row.protocolDirLocalIndex != 135) continue;  // ether2.ip.udp.snmp
      pkts = row.protocolDistStatsPkts;
      octets = row.protocolDistStatsOctets;
    }
  }
  EXPECT_EQ(pkts, 50U);
  EXPECT_EQ(octets, 50U * 64);  // 52 bytes, padded, and the frame check sequence
  const Walk walk = walk_hosts(client, 1);
  ASSERT_EQ(walk.hosts.size(), 1U);
  EXPECT_EQ(walk.hosts.begin()->second[0], 50U);
  EXPECT_EQ(walk.hosts.begin()->second[1], 50U);
}

}  // namespace
}  // namespace minitapd
