// How rows are read: what is asked for, what becomes of the answers, and where a table ends. Shown
// with a type whose rows come in lists and with dsmatrix, which no message creates; the end-to-end
// tests compare the records and requests of all others.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/smon_types.h"
#include "agent/type_facts.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

constexpr int kForeign = 6;

// Rows first to first + count - 1 of one control index.
struct Run {
  int index;
  std::uint32_t first;
  std::uint32_t count;
  std::uint32_t time_mark = 0;
};
using Batch = std::vector<Run>;

std::string four_bytes(std::uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
          static_cast<char>(n)};
}

// Hosts n. A record of n has counters that tell the row and the column.
struct Host {
  static constexpr bool kBatched = true;
  static constexpr std::uint32_t kType = kHost;
  static std::string mac(std::uint32_t n) { return "\x02\xf0" + four_bytes(n); }
  static Bytes reply(const Batch& batch) {
    HostRowList reply;
    for (const Run& run : batch) {
      for (std::uint32_t n = run.first; n < run.first + run.count; ++n) {
        const std::string address = mac(n);
        const ByteList bytes(
            std::span(reinterpret_cast<const std::uint8_t*>(address.data()), address.size()));
        reply.rows.next_row() = {1,     bytes, 9,     run.index, n,    n + 1,
                                 n + 2, n + 3, n + 4, n + 5,     ~0ULL};
      }
    }
    return ours(std::move(reply));
  }
  static std::string record(std::uint32_t n) {
    std::string bytes = mac(n);
    for (std::uint32_t k = 0; k < 6; ++k) bytes += bytes_of(static_cast<double>(n + k));
    return bytes + bytes_of(0x1p64);
  }
  static ScriptedClient::Call request(int n) {
    std::string after = n < 0 ? "" : mac(static_cast<std::uint32_t>(n));
    return {11, theirs<HostTableKey>(
                    {kIndex,
                     {static_cast<u_int>(after.size()), reinterpret_cast<u_char*>(after.data())},
                     100,
                     3})};
  }
};

// Two rows of dsmatrix differ only behind the 16 address bytes that a record keeps.
struct DsMatrix {
  static constexpr bool kBatched = false;
  static constexpr std::uint32_t kType = kDsMatrix;
  template <class Field>
  static void fill(Field& field, char start, std::uint32_t n) {
    const std::string bytes = std::string(16, start) + four_bytes(n);
    std::copy(bytes.begin(), bytes.end(), std::begin(field));
  }
  static Bytes reply(const Batch& batch) {
    DsMatrixRowReply reply{};
    reply.status = 1;
    if (!batch.empty()) {
      const auto [index, n, count, time_mark] = batch.front();
      reply = {0, index, time_mark, n / 2, 7, {}, {}, -11, 22, -33, n, ~0ULL};
      fill(reply.source_address, '\xaa', n);
      fill(reply.dest_address, '\xbb', n * 3);
    }
    return ours(reply);
  }
  static std::string record(std::uint32_t n) {
    return bytes_of(n / 2) + bytes_of(7) + bytes_of(22) + std::string(16, '\xaa') + bytes_of(-33) +
           std::string(16, '\xbb') + bytes_of(-11) + bytes_of(static_cast<double>(n)) +
           bytes_of(0x1p64);
  }
  static ScriptedClient::Call request(int after) {
    tapd_dsmatrix_key key{};
    key.dsmonMatrixCtlIndex = kIndex;
    key.request = 2;
    if (after >= 0) {
      const auto n = static_cast<std::uint32_t>(after);
      key.dsmonAggGroupIndex = n / 2;
      key.protocolDirLocalIndex = 7;
      fill(key.source_address, '\xaa', n);
      fill(key.dest_address, '\xbb', n * 3);
      key.key_word_1 = -11;
      key.key_word_2 = 22;
      key.key_word_3 = -33;
    }
    return {141, theirs<DsMatrixKey>(key)};
  }
};

struct IterationCase {
  const char* label;
  std::vector<Batch> batches;       // replies; every call after them fails
  std::uint32_t rows;               // 0 to rows - 1 are expected
  std::vector<int> requests_after;  // -1: from the start
  bool ends_well;                   // by itself, not by a failed call
};

// Batches of one row are for the types that are read one row a call, too.
const IterationCase kIterations[] = {
    {"empty table", {{}, {}}, 0, {-1}, true},
    {"no answer", {}, 0, {-1}, false},
    {"one row", {{{kIndex, 0, 1}}, {}}, 1, {-1, 0}, true},
    {"three rows",
     {{{kIndex, 0, 1}}, {{kIndex, 1, 1}}, {{kIndex, 2, 1}}, {}},
     3,
     {-1, 0, 1, 2},
     true},
    {"99 rows", {{{kIndex, 0, 99}}, {}}, 99, {-1, 98}, true},
    {"100 rows", {{{kIndex, 0, 100}}, {}}, 100, {-1, 99}, true},
    {"101 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 1}}, {}}, 101, {-1, 99, 100}, true},
    {"200 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 100}}, {}}, 200, {-1, 99, 199}, true},
    {"fails midway", {{{kIndex, 0, 100}}}, 100, {-1, 99}, false},
    {"fails behind a row", {{{kIndex, 0, 1}}}, 1, {-1, 0}, false},
    {"foreign first row", {{{kForeign, 0, 1}}}, 0, {-1}, true},
    {"foreign later", {{{kIndex, 0, 50}, {kForeign, 0, 50}}}, 50, {-1}, true},
    {"foreign batch", {{{kIndex, 0, 9}}, {{kForeign, 0, 9}}}, 9, {-1, 8}, true},
    {"foreign row behind one", {{{kIndex, 0, 1}}, {{kForeign, 1, 1}}}, 1, {-1, 0}, true},
    {"another time mark", {{{kIndex, 0, 1}}, {{kIndex, 1, 1, 9}}}, 1, {-1, 0}, true},
    {"the first with a time mark", {{{kIndex, 0, 1, 1U << 31}}}, 0, {-1}, true},
    {"the same batch again", {{{kIndex, 0, 9}}, {{kIndex, 0, 9}}}, 9, {-1, 8}, true},
    {"the last row again", {{{kIndex, 0, 9}}, {{kIndex, 8, 1}}}, 9, {-1, 8}, true},
    {"the only row again", {{{kIndex, 0, 1}}, {{kIndex, 0, 1}}}, 1, {-1, 0}, true},
    {"the same key under another index",
     {{{kIndex, 0, 9}}, {{kIndex, 9, 5}, {kForeign, 8, 1}}},
     14,
     {-1, 8},
     true},
};

template <class Type>
bool suits(const IterationCase& test) {
  for (const Batch& batch : test.batches) {
    for (const Run& run : batch) {
      if (Type::kBatched ? run.time_mark != 0 : run.count > 1) return false;
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

// records_of reads to the end, or until there are `most`.
template <class Type>
std::vector<std::string> records_of(RowIterator& rows, std::size_t most) {
  const CollectionOps& ops = agent_type_ops(Type::kType);
  std::vector<std::string> records;
  while (records.size() < most) {
    const unsigned char* record = ops.rpc_getnext(rows);
    if (!record) break;
    records.emplace_back(reinterpret_cast<const char*>(record), ops.record_size);
  }
  return records;
}

template <class Type>
void check_replies_and_records(const char* failed) {
  for (const IterationCase& test : kIterations) {
    if (!suits<Type>(test)) continue;
    SCOPED_TRACE(test.label);
    std::vector<ScriptedClient::Reply> replies;
    std::vector<ScriptedClient::Call> calls;
    std::vector<std::string> expected;
    for (const Batch& batch : test.batches) replies.emplace_back(Type::reply(batch));
    for (const int after : test.requests_after) calls.push_back(Type::request(after));
    for (std::uint32_t n = 0; n < test.rows; ++n) expected.push_back(Type::record(n));
    ScriptedClient agent(replies);
    RowIterator rows;
    take_log();
    EXPECT_EQ(records_of<Type>(begin(rows, agent), expected.size() + 1), expected);
    EXPECT_EQ(agent.calls(), calls);
    EXPECT_EQ(rows.reply.as<void>(), nullptr);
    EXPECT_EQ(take_log(),
              test.ends_well ? std::vector<LogLine>{} : std::vector{debug_line(failed)});
  }
}

TEST(RowIteration, FromRepliesToRecords) {
  check_replies_and_records<Host>("host_rpc_getnext: RPC failed");
  check_replies_and_records<DsMatrix>("dsmatrix_rpc_getnext: RPC failed");
}

// An agent that goes round in a circle gets to the end, too.
template <class Type>
void check_circles() {
  for (std::uint32_t length = 1; length <= 20; ++length) {
    std::uint32_t calls = 0;
    ScriptedClient agent([&](const ScriptedClient::Call&) {
      return Type::reply({{kIndex, calls++ % length, 1}});
    });
    RowIterator rows;
    static_cast<void>(records_of<Type>(begin(rows, agent), 200));
    EXPECT_LE(calls, 4 * length) << length;
    EXPECT_GT(calls, length);
  }
}

TEST(RowIteration, EndsInACircle) {
  check_circles<Host>();
  check_circles<DsMatrix>();
}

// What an agent may call a row, and no request can lead to: an id that is the start's own.
TEST(RowIteration, VlanZeroIsNotRead) {
  ScriptedClient agent({ours(VlanRowReply{0, 0, 1, 2, 3, 4, 5, kIndex})});
  RowIterator rows;
  EXPECT_EQ(vlan_ops.rpc_getnext(begin(rows, agent)), nullptr);
}

}  // namespace
}  // namespace tally
