// The operations of all agent types, where the end-to-end tests do not reach: rates over any
// interval, scans and polls of an agent that does not go on, and dsmatrix, which no message
// creates.
#include <gtest/gtest.h>
#include <minitapd/tapd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "agent/records.h"
#include "agent/tapd_agent.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

struct TypeFacts {
  std::string name;
  std::uint32_t key_size;
  std::uint32_t counters;
  std::string delta_null, delta_zero;  // whose name these texts have: another type's in places
};

// By their codes.
const TypeFacts kTypes[] = {
    {"host", 6, 7, "host_calc_delta", "host"},
    {"matrix", 12, 3, "matrix_calc_delta", "matrix"},
    {"pdist", 8, 2, "pdistcalc_delta2", "pdist"},
    {"nlhost", 24, 5, "nlhost_calc_delta2", "nlhost"},
    {"nlmatrix", 44, 2, "nlmatrixt_calc_delta", "nlmatrix"},
    {"vlan", 4, 4, "pdistcalc_delta2", "host"},
    {"prio", 4, 2, "pdistcalc_delta", "host"},
    {"dsstats", 4, 4, "nlhost_calc_delta", "dsstats"},
    {"dspdist", 8, 2, "nlhost_calc_delta2", "dspdist"},
    {"dshost", 28, 4, "nlhost_calc_delta", "dshost"},
    {"dsmatrix", 52, 2, "nlhost_calc_delta", "dsmatrix"},
};

const CollectionOps& ops_of(const TypeFacts& type) {
  return agent_type_ops(static_cast<std::uint32_t>(&type - kTypes));
}

struct RateCase {
  std::uint32_t interval;
  double prev;
  double last;
  double rate;
  double rate_of_new;
};

// Those of make_rate_cases.py, or of the file that RATE_CASES names.
std::vector<RateCase> rate_cases() {
  const char* const other = std::getenv("RATE_CASES");
  std::FILE* const file = std::fopen(other == nullptr ? RATE_CASES_OF_BUILD : other, "re");
  std::vector<RateCase> cases;
  for (RateCase one; file && std::fscanf(file, "%u %la %la %la %la", &one.interval, &one.prev,
                                         &one.last, &one.rate, &one.rate_of_new) == 5;) {
    cases.push_back(one);
  }
  if (file) (void)std::fclose(file);
  return cases;
}

// A record at an odd address, as it may lie in a cache, among other bytes: all of its counters
// stand at `others` but for one.
std::string record(const TypeFacts& type, char key, std::size_t counter, double value,
                   double others) {
  std::string bytes = '#' + std::string(type.key_size, key);
  for (std::size_t i = 0; i < type.counters; ++i) bytes += bytes_of(i == counter ? value : others);
  return bytes + '#';
}

unsigned char* in(std::string& record) {
  return reinterpret_cast<unsigned char*>(record.data() + 1);
}

TEST(Rate, FollowsTheRuleInEveryCounterOfEveryType) {
  const std::vector<RateCase> cases = rate_cases();
  ASSERT_GT(cases.size(), 100U);
  for (const TypeFacts& type : kTypes) {
    for (std::size_t i = 0; i < cases.size(); ++i) {
      const auto& [interval, before, now, rate, rate_of_new] = cases[i];
      const std::size_t counter = i % type.counters;
      SCOPED_TRACE(type.name + " " + std::to_string(i));
      std::string prev = record(type, 'p', counter, before, 5);
      std::string last = record(type, 'k', counter, now, 5);
      std::string out = record(type, 'o', 0, 1, 1);
      ASSERT_EQ(ops_of(type).calc_delta(in(prev), in(last), in(out), interval), rate != 0);
      ASSERT_EQ(out, record(type, 'k', counter, rate, 0));
      std::string fresh = record(type, 'k', counter, now, now);
      ASSERT_EQ(ops_of(type).calc_rate(in(fresh), in(out), interval), 1);
      ASSERT_EQ(out, record(type, 'k', counter, rate_of_new, rate_of_new));
    }
  }
}

TEST(Rate, LogsNullArgumentsAndEmptyIntervals) {
  for (const TypeFacts& type : kTypes) {
    const CollectionOps& ops = ops_of(type);
    std::string last = record(type, 'k', 0, 7, 7);
    std::string out = last;
    take_log();
    EXPECT_EQ(ops.calc_delta(nullptr, in(last), in(out), 0), -1);
    EXPECT_EQ(ops.calc_rate(nullptr, in(out), 0), 0);
    EXPECT_EQ(ops.calc_delta(in(last), in(last), in(out), 0), 0);
    EXPECT_EQ(ops.calc_rate(in(last), in(out), 0), 1);
    const std::string rate_null = type.name == "nlmatrix" ? "nlmatrixt" : type.name;
    EXPECT_EQ(take_log(),
              (std::vector{warning_line(type.delta_null + ": NULL pointer!"),
                           warning_line(rate_null + "_calc_rate: NULL pointer!"),
                           debug_line(type.delta_zero + "_calc_delta() found a 0-length interval."),
                           debug_line(type.name + "_calc_rate() found a 0-length interval.")}));
  }
}

// An AgentClient whose calls the test answers: no socket, but the real codec on both ways.
struct ScriptedClient final : AgentClient {
  using Call = std::pair<std::uint32_t, Bytes>;  // the procedure and its argument
  using Reply = std::optional<Bytes>;            // nothing for a call that fails

  explicit ScriptedClient(std::function<Reply(std::size_t)> answer) : reply_to(std::move(answer)) {}

  bool call(std::uint32_t procedure, WireRoutine encode, const void* argument, WireRoutine decode,
            void* result) override {
    char request[4096];
    XDR stream;
    xdrmem_create(&stream, request, sizeof request, XDR_ENCODE);
    if (!encode(&stream, const_cast<void*>(argument))) return false;
    calls.emplace_back(procedure, Bytes(request, request + xdr_getpos(&stream)));
    Reply reply = reply_to(calls.size() - 1);
    if (!reply) return false;
    xdrmem_create(&stream, reinterpret_cast<char*>(reply->data()),
                  static_cast<u_int>(reply->size()), XDR_DECODE);
    return decode(&stream, result) == TRUE;
  }

  std::function<Reply(std::size_t)> reply_to;
  std::vector<Call> calls;
};

struct FailingAdopter final : Adopter {
  bool adopt(std::uint32_t type, std::uint32_t index) override {
    tried.emplace_back(type, index);
    return false;
  }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> tried;
};

constexpr const char* kMine = "LocalMgr";

// A control row that is valid.
template <class Reply>
Bytes control_row(std::int32_t index, const std::string& owner) {
  Reply row;
  row.index = index;
  row.owner.length = static_cast<std::uint32_t>(owner.copy(row.owner.text.data(), owner.size()));
  row.row_status = 1;
  return encode_bytes(xdr_wire<Reply>, row);
}

// Which rows are adopted is shown end to end, but for an owner whose name a zero follows.
TEST(ControlScan, EndsWhenTheAgentDoesNotGoOn) {
  std::uint32_t type = 0;  // control procedures are listed in the order of the types
  for_each_procedure([&]<class Procedure>(const Procedure&, const auto& /*theirs*/) {
    using Reply = typename Procedure::Result;
    if constexpr (requires(Reply reply) { reply.row_status; }) {
      const Bytes mine = control_row<Reply>(70000, kMine);
      const Bytes longer = control_row<Reply>(6, std::string(kMine, 9));
      Bytes none = mine;
      none[3] = 1;  // the status
      for (const ScriptedClient::Reply& end :
           {ScriptedClient::Reply(), {none}, {Bytes(8)}, {longer}}) {
        ScriptedClient agent([&](std::size_t call) {
          return call == 0 ? mine : call == 1 ? longer : end;
        });
        FailingAdopter adopter;
        take_log();
        agent_type_ops(type).add_active(agent, adopter);
        EXPECT_EQ(adopter.tried, (std::vector{std::pair(type, 70000U)}));
        EXPECT_EQ(take_log(), std::vector{warning_line("Unable to add active " + kTypes[type].name +
                                                       " collection.")});
        EXPECT_EQ(agent.calls.size(), 3U);
      }
      ++type;
    }
  });
  EXPECT_EQ(type, kDsMatrix);
  FailingAdopter adopter;
  ScriptedClient circle([](std::size_t call) {
    return control_row<HostControlReply>(static_cast<std::int32_t>(1 + call % 2), "");
  });
  host_ops.add_active(circle, adopter);
  EXPECT_EQ(circle.calls.size(), 65535U);
}

constexpr int kIndex = 5;

// records_of reads to the end, or until there are `most`.
std::vector<std::string> records_of(const CollectionOps& ops, ScriptedClient& agent,
                                    std::size_t most) {
  RowIterator rows;
  rows.control_index = kIndex;
  rows.client = &agent;
  std::vector<std::string> records;
  while (records.size() < most) {
    const unsigned char* record = ops.rpc_getnext(rows);
    if (!record) {
      EXPECT_EQ(rows.reply.get(), nullptr);
      break;
    }
    records.emplace_back(reinterpret_cast<const char*>(record), ops.record_size);
  }
  return records;
}

// Of 20 address bytes a record keeps 16. It is rpcgen that writes the reply and the requests, so
// that every member is seen to be where the agent has it.
TEST(DsMatrix, IsReadToItsEnd) {
  tapd_dsmatrix_row_reply row{0, kIndex, 0, 6, 7, {}, {}, -11, 22, -33, 5, ~0ULL};
  tapd_dsmatrix_key first{kIndex, 0, 0, 0, {}, {}, 0, 0, 0, 2};
  tapd_dsmatrix_key second{kIndex, 0, 6, 7, {}, {}, -11, 22, -33, 2};
  std::iota(row.source_address, row.source_address + 20, u_char{100});
  std::iota(row.dest_address, row.dest_address + 20, u_char{200});
  std::copy_n(row.source_address, 20, second.source_address);
  std::copy_n(row.dest_address, 20, second.dest_address);
  const auto kept = [](const u_char* address) { return std::string(address, address + 16); };
  const auto record = bytes_of(6) + bytes_of(7) + bytes_of(22) + kept(row.source_address) +
                      bytes_of(-33) + kept(row.dest_address) + bytes_of(-11) + bytes_of(5.0) +
                      bytes_of(0x1p64);
  std::vector ends(5, row);  // the first: a call that fails; the last: a circle
  ends[1].status = 1;
  ends[2].dsmonMatrixCtlIndex = kIndex + 1;
  ends[3].dsmonMatrixTimeMark = 1U << 31;
  for (auto& end : ends) {
    const bool fails = &end == ends.data();
    ScriptedClient agent([&](std::size_t call) -> ScriptedClient::Reply {
      if (call > 0 && fails) return {};
      return encode_bytes(xdr_tapd_dsmatrix_row_reply, call == 0 ? row : end);
    });
    take_log();
    EXPECT_EQ(records_of(agent_type_ops(kDsMatrix), agent, 9), std::vector{record});
    EXPECT_EQ(
        agent.calls,
        (std::vector{ScriptedClient::Call(141, encode_bytes(xdr_tapd_dsmatrix_key, first)),
                     ScriptedClient::Call(141, encode_bytes(xdr_tapd_dsmatrix_key, second))}));
    EXPECT_EQ(take_log(), std::vector(fails, debug_line("dsmatrix_rpc_getnext: RPC failed")));
  }
}

// The rule is one for all types; a batch that goes nowhere is seen end to end.
TEST(RowIteration, EndsInACircle) {
  for (const std::uint32_t before : {0U, 5U}) {  // rows that are not of the circle
    for (std::uint32_t length = 1; length <= 20; ++length) {
      ScriptedClient agent([&](std::size_t call) {
        const auto id = 1 + (call < before ? 100 + call : call % length);
        VlanRowReply row{0, static_cast<std::int32_t>(id), 1, 2, 3, 4, 5, kIndex};
        return encode_bytes(xdr_wire<VlanRowReply>, row);
      });
      (void)records_of(vlan_ops, agent, 200);
      EXPECT_LE(agent.calls.size(), 4 * (before + length)) << length;
      EXPECT_GT(agent.calls.size(), before + length);
    }
  }
}

// What an agent may call a row, and no request can lead to: an id that is the start's own.
TEST(RowIteration, VlanZeroIsNotRead) {
  VlanRowReply row{0, 0, 1, 2, 3, 4, 5, kIndex};
  ScriptedClient agent([&](std::size_t) { return encode_bytes(xdr_wire<VlanRowReply>, row); });
  EXPECT_TRUE(records_of(vlan_ops, agent, 1).empty());
}

}  // namespace
}  // namespace tally
