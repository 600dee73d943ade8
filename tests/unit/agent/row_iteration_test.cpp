// How the rows of every agent type are read: what is asked for, what becomes of the answers, and
// where a table ends.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/network_types.h"
#include "agent/smon_types.h"
#include "agent/type_samples.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

struct IterationCase {
  const char* label;
  std::vector<Batch> batches;       // replies; every call after them fails
  std::uint32_t rows;               // 0 to rows - 1 are expected
  std::vector<int> requests_after;  // -1: from the start
  bool ends_well;                   // by itself, not by a failed call
  bool totals;                      // pdist has its closing row
};

// Batches of one row are for the types that are read one row a call, too.
const IterationCase kIterations[] = {
    {"empty table", {{}, {}}, 0, {-1}, true, false},
    {"no answer", {}, 0, {-1}, false, false},
    {"one row", {{{kIndex, 0, 1}}, {}}, 1, {-1, 0}, true, true},
    {"three rows",
     {{{kIndex, 0, 1}}, {{kIndex, 1, 1}}, {{kIndex, 2, 1}}, {}},
     3,
     {-1, 0, 1, 2},
     true,
     true},
    {"99 rows", {{{kIndex, 0, 99}}, {}}, 99, {-1, 98}, true, true},
    {"100 rows", {{{kIndex, 0, 100}}, {}}, 100, {-1, 99}, true, true},
    {"101 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 1}}, {}}, 101, {-1, 99, 100}, true, true},
    {"200 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 100}}, {}}, 200, {-1, 99, 199}, true, true},
    {"fails midway", {{{kIndex, 0, 100}}}, 100, {-1, 99}, false, false},
    {"fails behind a row", {{{kIndex, 0, 1}}}, 1, {-1, 0}, false, false},
    {"foreign first row", {{{kForeign, 0, 1}}}, 0, {-1}, true, true},
    {"foreign later", {{{kIndex, 0, 50}, {kForeign, 0, 50}}}, 50, {-1}, true, true},
    {"foreign batch", {{{kIndex, 0, 9}}, {{kForeign, 0, 9}}}, 9, {-1, 8}, true, true},
    {"foreign row behind one", {{{kIndex, 0, 1}}, {{kForeign, 1, 1}}}, 1, {-1, 0}, true, true},
    {"another time mark", {{{kIndex, 0, 1}}, {{kIndex, 1, 1, 9}}}, 1, {-1, 0}, true, true},
    {"the first with a time mark", {{{kIndex, 0, 1, 1U << 31}}}, 0, {-1}, true, true},
    {"the same batch again", {{{kIndex, 0, 9}}, {{kIndex, 0, 9}}}, 9, {-1, 8}, true, true},
    {"the last row again", {{{kIndex, 0, 9}}, {{kIndex, 8, 1}}}, 9, {-1, 8}, true, true},
    {"the only row again", {{{kIndex, 0, 1}}, {{kIndex, 0, 1}}}, 1, {-1, 0}, true, true},
    {"the same key under another index",
     {{{kIndex, 0, 9}}, {{kIndex, 9, 5}, {kForeign, 8, 1}}},
     14,
     {-1, 8},
     true,
     true},
};

bool suits(const IterationCase& test, const TypeSample& sample) {
  for (const Batch& batch : test.batches) {
    for (const Run& run : batch) {
      if ((run.count > 1 && !sample.batched) || (run.time_mark != 0 && !sample.time_mark)) {
        return false;
      }
    }
  }
  return true;
}

RowIterator& begin(RowIterator& rows, ScriptedClient& agent) {
  rows.control_index = kIndex;
  rows.client = &agent.client();
  std::memset(rows.record, '#', sizeof rows.record);
  return rows;
}

TEST(RowIteration, EveryTypeFromReplyToRecord) {
  for (const TypeSample& sample : type_samples()) {
    const bool has_totals = sample.type == kPdist;
    for (const IterationCase& test : kIterations) {
      if (!suits(test, sample)) continue;
      SCOPED_TRACE(std::string(sample.name) + ": " + test.label);
      std::vector<ScriptedClient::Reply> replies;
      std::vector<ScriptedClient::Call> expected_calls;
      for (const Batch& batch : test.batches) replies.emplace_back(sample.reply(batch));
      for (const int after : test.requests_after) expected_calls.push_back(sample.request(after));
      if (sample.type == kDsStats && !test.batches.empty() && test.batches[0].empty()) {
        expected_calls.push_back(sample.request(0));  // without a group 0, for what follows it
      }
      std::vector<std::string> expected;
      for (std::uint32_t n = 0; n < test.rows; ++n) expected.push_back(sample.record(n));
      if (has_totals && test.totals) {
        replies.emplace_back(ours(PdistTotalsReply{0, 1000, ~0ULL}));
        expected_calls.push_back({184, theirs<ControlIndex>(kIndex)});
        expected.push_back(bytes_of(132) + bytes_of(-1) + doubles({1000, 0x1p64}));
      }
      ScriptedClient agent(replies);
      RowIterator rows;
      take_log();
      EXPECT_EQ(records_of(sample, begin(rows, agent), expected.size() + 1), expected);
      EXPECT_EQ(agent.calls(), expected_calls);
      EXPECT_EQ(rows.reply.as<void>(), nullptr);
      EXPECT_EQ(take_log(), test.ends_well ? std::vector<LogLine>{}
                                           : std::vector{debug_line(sample.getnext_failed)});
      if (has_totals && test.totals) {
        EXPECT_EQ(sample.ops().rpc_getnext(rows), nullptr);  // asks no more
        EXPECT_EQ(agent.calls().size(), expected_calls.size());
      }
    }
  }
}

// An agent that goes round in a circle gets to the end, too.
TEST(RowIteration, EndsInACircle) {
  for (const TypeSample& sample : type_samples()) {
    SCOPED_TRACE(sample.name);
    for (std::uint32_t length = 1; length <= 20; ++length) {
      std::uint32_t calls = 0;
      ScriptedClient agent([&](const ScriptedClient::Call& call) {
        return call.procedure == 184 ? ScriptedClient::Reply{}
                                     : sample.reply({{kIndex, calls++ % length, 1}});
      });
      RowIterator rows;
      static_cast<void>(records_of(sample, begin(rows, agent), 200));
      EXPECT_LE(calls, 4 * length) << length;
      EXPECT_GT(calls, length);
    }
  }
}

TEST(RowIteration, PdistTotalsMayBeMissing) {
  const TypeSample& pdist = type_samples()[kPdist];
  for (const ScriptedClient::Reply& totals :
       {ScriptedClient::Reply{}, ScriptedClient::Reply(ours(PdistTotalsReply{1, 5, 5}))}) {
    ScriptedClient agent({pdist.reply({{kIndex, 0, 1}}), pdist.reply({}), totals});
    RowIterator rows;
    EXPECT_EQ(records_of(pdist, begin(rows, agent), 9).size(), 1U);
    EXPECT_EQ(pdist.ops().rpc_getnext(rows), nullptr);
    EXPECT_EQ(agent.calls().size(), 3U);
  }
}

// The first row of dsstats is group 0 itself, or the one behind it when there is no such group.
TEST(RowIteration, DsStatsBeginsWithGroupZero) {
  const TypeSample& dsstats = type_samples()[kDsStats];
  const Bytes none = dsstats.reply({});
  const Bytes four = dsstats.reply({{kIndex, 4, 1}});
  const LogLine failed = debug_line(dsstats.getnext_failed);
  struct Case {
    std::vector<ScriptedClient::Reply> replies;
    std::vector<int> requests_after;
    std::vector<std::uint32_t> groups;
    std::vector<LogLine> log;
  };
  for (const Case& test :
       {Case{{none, four, none}, {-1, 0, 4}, {4}, {}}, Case{{none, none}, {-1, 0}, {}, {}},
        Case{{none}, {-1, 0}, {}, {failed}}, Case{{}, {-1}, {}, {failed}},
        Case{{none, dsstats.reply({{kForeign, 4, 1}})}, {-1, 0}, {}, {}},
        Case{{none, four}, {-1, 0, 4}, {4}, {failed}}}) {
    ScriptedClient agent(test.replies);
    RowIterator rows;
    std::vector<std::string> expected;
    std::vector<ScriptedClient::Call> calls;
    for (const std::uint32_t group : test.groups) expected.push_back(dsstats.record(group));
    for (const int after : test.requests_after) calls.push_back(dsstats.request(after));
    take_log();
    EXPECT_EQ(records_of(dsstats, begin(rows, agent), 9), expected);
    EXPECT_EQ(agent.calls(), calls);
    EXPECT_EQ(take_log(), test.log);
  }
}

// What an agent may call a row, and no request can lead to: an id that is the start's own.
TEST(RowIteration, VlanZeroIsNotRead) {
  ScriptedClient agent({ours(VlanRowReply{0, 0, 1, 2, 3, 4, 5, kIndex})});
  RowIterator rows;
  EXPECT_EQ(vlan_ops.rpc_getnext(begin(rows, agent)), nullptr);
}

std::string address_of(std::size_t length) {
  std::string address(length, '\0');
  for (std::size_t i = 0; i < length; ++i) address[i] = static_cast<char>(0xf1 + i);
  return address;
}

// Reads the one row that the agent has, which must have this key, and the end behind it.
void check_only_row(const CollectionOps& ops, ScriptedClient& agent, const std::string& key) {
  RowIterator rows;
  const unsigned char* record = ops.rpc_getnext(begin(rows, agent));
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(record), key.size()), key);
  EXPECT_EQ(ops.rpc_getnext(rows), nullptr);
  ASSERT_EQ(agent.calls().size(), 2U);
}

// An address of any length makes a record; the next key carries six bytes of it at the most.
TEST(RowIteration, MacAddressesOfAnyLength) {
  for (const std::size_t length : {0U, 1U, 4U, 5U, 6U, 7U, 16U, 17U, 20U, 21U, 255U, 65536U}) {
    SCOPED_TRACE(length);
    const std::string sent = address_of(length);
    const std::string key = sent.substr(0, 6);
    std::string field = key;
    field.resize(6, '\0');
    const std::string source = mac_address(3);
    MatrixRowList pairs;
    pairs.rows.next_row() = {1, byte_list(source), byte_list(sent), kIndex, 1, 1, 1};
    ScriptedClient matrix({ours(std::move(pairs)), ours(MatrixRowList{})});
    check_only_row(matrix_ops, matrix, source + field);
    EXPECT_EQ(matrix.calls()[1].argument,
              theirs<MatrixTableKey>({kIndex, wire_bytes(source), wire_bytes(key), 100, 3, 0}));
    if (length == 0) continue;  // a host without an address would be the start
    HostRowList hosts;
    hosts.rows.next_row() = {1, byte_list(sent), 1, kIndex, 1, 1, 1, 1, 1, 1, 1};
    ScriptedClient host({ours(std::move(hosts)), ours(HostRowList{})});
    check_only_row(host_ops, host, field);
    EXPECT_EQ(host.calls()[1].argument, theirs<HostTableKey>({kIndex, wire_bytes(key), 100, 3}));
  }
}

// A network address is cut at 16 bytes, its length with it; the next key carries all of it.
TEST(RowIteration, NetworkAddressesOfAnyLength) {
  for (const std::uint32_t length : {0U, 1U, 4U, 5U, 15U, 16U, 17U, 20U, 21U, 255U}) {
    SCOPED_TRACE(length);
    const std::string sent = address_of(length);
    std::string field = bytes_of(std::min(length, 16U)) + sent.substr(0, 16);
    field.resize(20, '\0');
    const std::string source = "\x0a\x01\x02\x03";
    const std::string source_field = bytes_of(4) + source + std::string(12, '\0');

    NlHostRowList hosts;
    hosts.rows.next_row() = {1, 0, byte_list(sent), 1, 1, 1, 1, 1, 1, kIndex, 256, 1};
    ScriptedClient host({ours(std::move(hosts)), ours(NlHostRowList{})});
    check_only_row(nlhost_ops, host, bytes_of(256) + field);
    EXPECT_EQ(host.calls()[1].argument,
              theirs<NlHostTableKey>({kIndex, 0, 256, 0, wire_bytes(sent), 3, 0, 100}));

    for (const bool swapped : {false, true}) {
      const std::string& from = swapped ? sent : source;
      const std::string& to = swapped ? source : sent;
      NlMatrixRowList pairs;
      pairs.rows.next_row() = {1, 0, byte_list(from), byte_list(to), 1, 1, 1, kIndex, 256, 1};
      ScriptedClient matrix({ours(std::move(pairs)), ours(NlMatrixRowList{})});
      check_only_row(nlmatrix_ops, matrix,
                     bytes_of(256) + (swapped ? field + source_field : source_field + field));
      EXPECT_EQ(matrix.calls()[1].argument,
                theirs<NlMatrixTableKey>(
                    {kIndex, 0, 256, 0, wire_bytes(from), wire_bytes(to), 3, 0, 0, 100}));
    }
  }
}

// 64 bits become a double in one rounding, to even on ties, whatever the top bit.
TEST(RowIteration, CountersAreRoundedOnce) {
  const std::pair<std::uint64_t, double> cases[] = {
      {0, 0.0},
      {(1ULL << 53) + 1, 0x1p53},
      {(1ULL << 53) + 3, 0x1.0000000000002p53},
      {(1ULL << 63) - 1, 0x1p63},
      {(1ULL << 63) + 1024, 0x1p63},
      {(1ULL << 63) + 1025, 0x1.0000000000001p63},
      {~0ULL - 1024, 0x1.fffffffffffffp63},
      {~0ULL, 0x1p64},
  };
  for (const auto& [count, expected] : cases) {
    ScriptedClient agent({ours(PrioRowReply{0, 7, 0, count, kIndex})});
    RowIterator rows;
    const unsigned char* record = prio_ops.rpc_getnext(begin(rows, agent));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(record), 20),
              bytes_of(7) + doubles({0, expected}));
  }
}

}  // namespace
}  // namespace tally
