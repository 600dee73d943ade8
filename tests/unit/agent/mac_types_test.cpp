// Row iteration, upload, order and control scan of host, matrix and pdist.
#include "agent/mac_types.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "agent/procedures.h"
#include "agent/tapd_agent.h"
#include "files/file_lock.h"
#include "support/scripted_client.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"
#include "support/wire_peers.h"

namespace tally {
namespace {

constexpr int kIndex = 5;
constexpr int kForeign = 6;

template <class T>
Bytes ours(T value) {
  return encode_bytes(xdr_wire<T>, value);
}
template <class Key, class Theirs = typename Peer<Key>::Type>
Bytes theirs(Theirs value) {
  return encode_bytes<Theirs>(Peer<Key>::xdr, value);
}

std::string address(std::uint32_t n) {
  return {'\x02',
          '\xf0',
          static_cast<char>(n >> 24),
          static_cast<char>(n >> 16),
          static_cast<char>(n >> 8),
          static_cast<char>(n)};
}
ByteList byte_list(const std::string& bytes) {
  return ByteList(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}
tapd_bytes wire_bytes(const std::string& bytes) {
  return {static_cast<u_int>(bytes.size()),
          const_cast<u_char*>(reinterpret_cast<const u_char*>(bytes.data()))};
}
std::string doubles(std::initializer_list<double> values) {
  std::string bytes;
  for (const double value : values) bytes += bytes_of(value);
  return bytes;
}

// What the tests need of a type: its row number n under a control index, that row's record, and
// the request for what follows it (n < 0: for the start).
struct Host {
  using Rows = HostRowList;
  static constexpr const CollectionOps& ops = host_ops;
  static constexpr const char* failed = "host_rpc_getnext: RPC failed";
  static constexpr const char* upload_failed = "host_upload() error 1.";
  static HostRow row(int index, std::uint32_t n) {
    return {1, byte_list(address(n)), 9, index, n, 2 * n, 3 * n, 4 * n, 5 * n, 6 * n, 7 * n};
  }
  static std::string record(std::uint32_t n) {
    const double d = n;
    return address(n) + doubles({d, 2 * d, 3 * d, 4 * d, 5 * d, 6 * d, 7 * d});
  }
  static ScriptedClient::Call request(int n) {
    const std::string after = n < 0 ? "" : address(static_cast<std::uint32_t>(n));
    return {11, theirs<HostTableKey>({kIndex, wire_bytes(after), 100, 3})};
  }
};
struct Matrix {
  using Rows = MatrixRowList;
  static constexpr const CollectionOps& ops = matrix_ops;
  static constexpr const char* failed = "matrix_rpc_getnext: RPC failed";
  static constexpr const char* upload_failed = "matrix_upload() error 1.";
  static MatrixRow row(int index, std::uint32_t n) {
    return {1, byte_list(address(n)), byte_list(address(n + 1)), index, n, 2 * n, 3 * n};
  }
  static std::string record(std::uint32_t n) {
    const double d = n;
    return address(n) + address(n + 1) + doubles({d, 2 * d, 3 * d});
  }
  static ScriptedClient::Call request(int n) {
    const auto number = static_cast<std::uint32_t>(n);
    const std::string source = n < 0 ? "" : address(number);
    const std::string dest = n < 0 ? "" : address(number + 1);
    return {18, theirs<MatrixTableKey>({kIndex, wire_bytes(source), wire_bytes(dest), 100, 3, 0})};
  }
};
struct Pdist {
  using Rows = PdistRowList;
  static constexpr const CollectionOps& ops = pdist_ops;
  static constexpr const char* failed = "pdist_rpc_getnext: RPC failed";
  static constexpr const char* upload_failed = "pdist_upload() error 1.";
  static PdistRow row(int index, std::uint32_t n) {
    return {1, index, static_cast<std::int32_t>(n) + 1, n, 2 * n, 77};
  }
  static std::string record(std::uint32_t n) {
    const double d = n;
    return bytes_of(77) + bytes_of(n + 1) + doubles({d, 2 * d});
  }
  static ScriptedClient::Call request(int n) {
    return {26, theirs<PdistTableKey>({kIndex, n + 1, 3, 100})};
  }
};

// A run of rows of one control index.
struct Run {
  int index;
  std::uint32_t first;
  std::uint32_t count;
};
using Batch = std::vector<Run>;

template <class Type>
Bytes reply_of(const Batch& batch) {
  typename Type::Rows list;
  for (const Run& run : batch) {
    for (std::uint32_t i = 0; i < run.count; ++i) {
      list.rows.next_row() = Type::row(run.index, run.first + i);
    }
  }
  return encode_bytes(xdr_wire<typename Type::Rows>, list);
}

struct IterationCase {
  const char* label;
  std::vector<Batch> batches;       // replies; every call after them fails
  std::uint32_t rows;               // 0 to rows - 1 are expected
  std::vector<int> requests_after;  // -1: from the start
  bool ends_well;                   // by itself, not by a failed call
  bool totals;                      // pdist has its closing row
};

const IterationCase kIterations[] = {
    {"empty table", {{}}, 0, {-1}, true, false},
    {"no answer", {}, 0, {-1}, false, false},
    {"one row", {{{kIndex, 0, 1}}, {}}, 1, {-1, 0}, true, true},
    {"99 rows", {{{kIndex, 0, 99}}, {}}, 99, {-1, 98}, true, true},
    {"100 rows", {{{kIndex, 0, 100}}, {}}, 100, {-1, 99}, true, true},
    {"101 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 1}}, {}}, 101, {-1, 99, 100}, true, true},
    {"200 rows", {{{kIndex, 0, 100}}, {{kIndex, 100, 100}}, {}}, 200, {-1, 99, 199}, true, true},
    {"fails midway", {{{kIndex, 0, 100}}}, 100, {-1, 99}, false, false},
    {"foreign first row", {{{kForeign, 0, 3}}}, 0, {-1}, true, true},
    {"foreign later", {{{kIndex, 0, 50}, {kForeign, 0, 50}}}, 50, {-1}, true, true},
    {"foreign batch", {{{kIndex, 0, 9}}, {{kForeign, 0, 9}}}, 9, {-1, 8}, true, true},
    {"the same batch again", {{{kIndex, 0, 9}}, {{kIndex, 0, 9}}}, 9, {-1, 8}, true, true},
    {"the last row again", {{{kIndex, 0, 9}}, {{kIndex, 8, 1}}}, 9, {-1, 8}, true, true},
    {"the same key under another index",
     {{{kIndex, 0, 9}}, {{kIndex, 9, 5}, {kForeign, 8, 1}}},
     14,
     {-1, 8},
     true,
     true},
};

template <class Type>
void check_iterations() {
  constexpr bool has_totals = std::is_same_v<Type, Pdist>;
  for (const IterationCase& test : kIterations) {
    SCOPED_TRACE(test.label);
    std::vector<ScriptedClient::Reply> replies;
    std::vector<ScriptedClient::Call> expected_calls;
    for (const Batch& batch : test.batches) replies.emplace_back(reply_of<Type>(batch));
    for (const int after : test.requests_after) expected_calls.push_back(Type::request(after));
    std::vector<std::string> expected;
    for (std::uint32_t n = 0; n < test.rows; ++n) expected.push_back(Type::record(n));
    if (has_totals && test.totals) {
      replies.emplace_back(ours(PdistTotalsReply{0, 1000, ~0ULL}));
      expected_calls.push_back({184, theirs<ControlIndex>(kIndex)});
      expected.push_back(bytes_of(132) + bytes_of(-1) + doubles({1000, 0x1p64}));
    }
    ScriptedClient agent(replies);
    RowIterator rows;
    rows.control_index = kIndex;
    rows.client = &agent.client();
    take_log();
    std::vector<std::string> records;
    while (const unsigned char* record = Type::ops.rpc_getnext(rows)) {
      records.emplace_back(reinterpret_cast<const char*>(record), Type::ops.record_size);
      ASSERT_LE(records.size(), expected.size());
    }
    EXPECT_EQ(records, expected);
    EXPECT_EQ(agent.calls(), expected_calls);
    EXPECT_EQ(rows.reply.as<void>(), nullptr);
    EXPECT_EQ(take_log(),
              test.ends_well ? std::vector<LogLine>{} : std::vector{debug_line(Type::failed)});
    if (has_totals && test.totals) {
      EXPECT_EQ(Type::ops.rpc_getnext(rows), nullptr);  // asks no more
      EXPECT_EQ(agent.calls().size(), expected_calls.size());
    }
  }
}

TEST(RowIteration, Host) {
  check_iterations<Host>();
}
TEST(RowIteration, Matrix) {
  check_iterations<Matrix>();
}
TEST(RowIteration, Pdist) {
  check_iterations<Pdist>();
}

// An agent that goes round in a circle of batches gets to the end, too.
TEST(RowIteration, EndsInACircle) {
  for (std::uint32_t length = 1; length <= 20; ++length) {
    std::uint32_t calls = 0;
    ScriptedClient agent([&](const auto&) {
      return reply_of<Matrix>({{kIndex, calls++ % length, 1}});
    });
    RowIterator rows;
    rows.control_index = kIndex;
    rows.client = &agent.client();
    while (calls < 200 && matrix_ops.rpc_getnext(rows)) {
    }
    EXPECT_LE(calls, 4 * length) << length;
    EXPECT_GT(calls, length);
  }
}

TEST(RowIteration, PdistTotalsMayBeMissing) {
  for (const ScriptedClient::Reply& totals :
       {ScriptedClient::Reply{}, ScriptedClient::Reply(ours(PdistTotalsReply{1, 5, 5}))}) {
    ScriptedClient agent({reply_of<Pdist>({{kIndex, 0, 1}}), reply_of<Pdist>({}), totals});
    RowIterator rows;
    rows.control_index = kIndex;
    rows.client = &agent.client();
    EXPECT_NE(pdist_ops.rpc_getnext(rows), nullptr);
    EXPECT_EQ(pdist_ops.rpc_getnext(rows), nullptr);
    EXPECT_EQ(pdist_ops.rpc_getnext(rows), nullptr);
    EXPECT_EQ(agent.calls().size(), 3U);
  }
}

// An address of any length makes a record; the next key carries six bytes of it at the most.
TEST(RowIteration, AddressesOfAnyLength) {
  for (const std::size_t length : {1U, 2U, 5U, 6U, 7U, 16U, 20U, 21U, 65536U}) {
    SCOPED_TRACE(length);
    std::string sent(length, '\0');
    for (std::size_t i = 0; i < length; ++i) sent[i] = static_cast<char>(0xf1 + i);
    std::string key = sent.substr(0, 6);
    HostRowList hosts;
    hosts.rows.next_row() = {1, byte_list(sent), 1, kIndex, 1, 1, 1, 1, 1, 1, 1};
    MatrixRowList pairs;
    pairs.rows.next_row() = {1, byte_list(address(3)), byte_list(sent), kIndex, 1, 1, 1};
    ScriptedClient agent({ours(std::move(hosts)), ours(HostRowList{}), ours(std::move(pairs)),
                          ours(MatrixRowList{})});
    for (const CollectionOps* ops : {&host_ops, &matrix_ops}) {
      RowIterator rows;
      rows.control_index = kIndex;
      rows.client = &agent.client();
      std::memset(rows.record, '#', sizeof rows.record);
      const unsigned char* record = ops->rpc_getnext(rows);
      ASSERT_NE(record, nullptr);
      std::string filled = (ops == &matrix_ops ? address(3) : "") + key;
      filled.resize(ops == &matrix_ops ? 12 : 6);
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(record), filled.size()), filled);
      EXPECT_EQ(ops->rpc_getnext(rows), nullptr);
    }
    ASSERT_EQ(agent.calls().size(), 4U);
    EXPECT_EQ(agent.calls()[1].argument, theirs<HostTableKey>({kIndex, wire_bytes(key), 100, 3}));
    const std::string source = address(3);
    EXPECT_EQ(agent.calls()[3].argument,
              theirs<MatrixTableKey>({kIndex, wire_bytes(source), wire_bytes(key), 100, 3, 0}));
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
    HostRowList hosts;
    hosts.rows.next_row() = {1, byte_list(address(1)), 1, kIndex, 0, 0, 0, 0, 0, 0, count};
    ScriptedClient agent({ours(std::move(hosts))});
    RowIterator rows;
    rows.control_index = kIndex;
    rows.client = &agent.client();
    const unsigned char* record = host_ops.rpc_getnext(rows);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(record), 62),
              address(1) + doubles({0, 0, 0, 0, 0, 0, expected}));
  }
}

template <class Type>
void check_upload() {
  SCOPED_TRACE(Type::failed);
  const TemporaryDirectory directory;
  const std::vector<ScriptedClient::Reply> replies = {reply_of<Type>({{kIndex, 0, 400}}),
                                                      reply_of<Type>({{kForeign, 0, 1}})};
  for (const std::string& path : {directory / "last", std::string("/dev/full")}) {
    ScriptedClient agent(replies);
    const UniqueFd file = open_file(path.c_str(), O_WRONLY | O_CREAT);
    RecordCache cache;
    filebuf_init(cache, file.get());
    CollectionRecord collection;
    collection.index = kIndex;
    take_log();
    const int result = Type::ops.upload(agent.client(), cache, 99, collection);
    if (path == "/dev/full") {
      EXPECT_EQ(result, 0);
      EXPECT_EQ(take_log(), (std::vector{warning_line("Unable to write poll cache to file."),
                                         debug_line(Type::upload_failed)}));
      continue;
    }
    EXPECT_EQ(result, 1);
    ASSERT_EQ(filebuf_flush(cache), 1);
    std::string expected;
    for (std::uint32_t n = 0; n < 400; ++n) expected += Type::record(n);
    EXPECT_EQ(read_file(path), expected);
  }
}

TEST(Upload, PutsEveryRowOrTellsThatItCannot) {
  check_upload<Host>();
  check_upload<Matrix>();
  check_upload<Pdist>();
}

TEST(Order, ComparesKeysOnly) {
  std::mt19937 random(1);
  const auto sign = [](int value) { return (value > 0) - (value < 0); };
  for (int i = 0; i < 20'000; ++i) {
    std::string a(69, '\0');
    for (char& byte : a) byte = static_cast<char>(random());
    std::string b = a;
    b[1 + random() % 14] = static_cast<char>(random());
    const auto* left = reinterpret_cast<const unsigned char*>(a.data() + 1);  // at an odd address
    const auto* right = reinterpret_cast<const unsigned char*>(b.data() + 1);
    ASSERT_EQ(host_ops.compare(left, right), sign(std::memcmp(left, right, 6)));
    ASSERT_EQ(matrix_ops.compare(left, right), sign(std::memcmp(left, right, 12)));
    std::uint32_t words[2];
    std::memcpy(&words[0], left + 4, 4);
    std::memcpy(&words[1], right + 4, 4);
    ASSERT_EQ(pdist_ops.compare(left, right), words[0] < words[1] ? -1 : words[0] > words[1]);
  }
}

TEST(AgentTypes, TableHasWholeRowsOrEmptyOnes) {
  const std::uint32_t sizes[kTypeSlots] = {62, 36, 24, 64, 60, 36, 20, 36, 24, 60, 68};
  for (std::uint32_t type = 0; type <= kTypeSlots; ++type) {
    SCOPED_TRACE(type);
    const CollectionOps& ops = agent_type_ops(type);
    const bool there = ops.record_size != 0;
    EXPECT_EQ(ops.upload && ops.compare && ops.calc_delta && ops.calc_rate && ops.add_active &&
                  ops.rpc_getnext,
              there);
    EXPECT_EQ(ops.record_size, there ? sizes[type] : 0);
    if (there) {
      EXPECT_TRUE(is_agent_type(type));
    } else {
      EXPECT_GT(type, kPdist);
    }
  }
}

// --- the scan of the control tables ---

class RecordingAdopter final : public Adopter {
 public:
  bool adopt(std::uint32_t type, std::uint32_t index) override {
    adopted.emplace_back(type, index);
    return succeeds;
  }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> adopted;
  bool succeeds = true;
};

Bytes control_row(std::uint32_t type, int status, int index, std::string_view owner,
                  int row_status) {
  WireString text;
  text.length = static_cast<std::uint32_t>(owner.copy(text.text.data(), owner.size()));
  if (type == kHost) return ours(HostControlReply{status, index, 1, 2, 3, text, row_status});
  if (type == kMatrix) return ours(MatrixControlReply{status, index, 1, 2, 3, text, row_status});
  return ours(PdistControlReply{status, index, 1, 2, 3, text, row_status});
}

struct ScanType {
  std::uint32_t type;
  rpcproc_t procedure;
  const char* add_failed;
};
constexpr ScanType kScans[] = {{kHost, 9, "Unable to add active host collection."},
                               {kMatrix, 16, "Unable to add active matrix collection."},
                               {kPdist, 24, "Unable to add active pdist collection."}};

TEST(ControlScan, AdoptsValidRowsOfOurOwner) {
  using namespace std::string_view_literals;
  for (const auto& [type, procedure, add_failed] : kScans) {
    SCOPED_TRACE(procedure);
    ScriptedClient agent(
        {control_row(type, 0, 1, "LocalMgr", 1), control_row(type, 0, 2, "LocalMgr2", 1),
         control_row(type, 0, 3, "LocalMg", 1), control_row(type, 0, 4, "localmgr", 1),
         control_row(type, 0, 5, "", 1), control_row(type, 0, 6, "LocalMgr\0"sv, 1),
         control_row(type, 0, 7, "LocalMgr", 2), control_row(type, 0, 70000, "LocalMgr", 1),
         control_row(type, 1, 9, "LocalMgr", 1)});
    RecordingAdopter adopter;
    adopter.succeeds = type != kMatrix;
    take_log();
    agent_type_ops(type).add_active(agent.client(), adopter);
    EXPECT_EQ(adopter.adopted,
              (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{type, 1}, {type, 70000}}));
    EXPECT_EQ(take_log(),
              adopter.succeeds ? std::vector<LogLine>{} : std::vector(2, warning_line(add_failed)));
    std::vector<ScriptedClient::Call> expected;
    for (const int after : {0, 1, 2, 3, 4, 5, 6, 7, 70000}) {
      expected.push_back({procedure, theirs<ControlKey>({after, 2})});
    }
    EXPECT_EQ(agent.calls(), expected);
  }
}

TEST(ControlScan, EndsWhenTheAgentDoesNotGoOn) {
  RecordingAdopter adopter;
  ScriptedClient silent{std::vector<ScriptedClient::Reply>{}};
  host_ops.add_active(silent.client(), adopter);
  EXPECT_EQ(silent.calls().size(), 1U);
  ScriptedClient stuck([](const auto&) { return control_row(kHost, 0, 7, "other", 1); });
  host_ops.add_active(stuck.client(), adopter);
  EXPECT_EQ(stuck.calls().size(), 2U);
  int calls = 0;
  ScriptedClient circle([&](const auto&) { return control_row(kHost, 0, 1 + ++calls % 2, "", 1); });
  host_ops.add_active(circle.client(), adopter);
  EXPECT_EQ(circle.calls().size(), 65535U);
  EXPECT_TRUE(adopter.adopted.empty());
}

}  // namespace
}  // namespace tally
