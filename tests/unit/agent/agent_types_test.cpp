// The table of operations of the agent types: sizes, order, and the control scan.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/type_facts.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

TEST(AgentTypes, TableHasWholeRowsOrEmptyOnes) {
  const std::uint32_t sizes[] = {62, 36, 24, 64, 60, 36, 20, 36, 24, 60, 68};
  for (std::uint32_t type = 0; type <= kTypeSlots; ++type) {
    SCOPED_TRACE(type);
    const CollectionOps& ops = agent_type_ops(type);
    const bool there = type < std::size(sizes);
    EXPECT_EQ(is_agent_type(type), there);
    EXPECT_EQ(ops.record_size, there ? sizes[type] : 0);
    EXPECT_EQ(ops.upload && ops.compare && ops.calc_delta && ops.calc_rate && ops.rpc_getnext,
              there);
    EXPECT_EQ(ops.upload || ops.compare || ops.calc_delta || ops.calc_rate || ops.rpc_getnext,
              there);
    EXPECT_EQ(ops.add_active != nullptr, there && type != kDsMatrix);
    if (!there) continue;
    const TypeFacts& facts = kTypeFacts[type];
    EXPECT_EQ(facts.type, type);
    EXPECT_EQ(facts.key_size + 8 * facts.counters, sizes[type]);
  }
}

// What a type's records are sorted by: their first bytes as they lie, or words as numbers.
struct OrderCase {
  std::uint32_t type;
  std::uint32_t bytes;
  std::vector<std::size_t> words;  // offsets
};
const OrderCase kOrders[] = {
    {kHost, 6, {}},        {kMatrix, 12, {}}, {kPdist, 0, {4}},    {kNlHost, 24, {}},
    {kNlMatrix, 44, {}},   {kVlan, 0, {0}},   {kPrio, 0, {0}},     {kDsStats, 0, {0}},
    {kDsPdist, 0, {0, 4}}, {kDsHost, 28, {}}, {kDsMatrix, 52, {}},
};

int expected_order(const OrderCase& order, const std::string& a, const std::string& b) {
  if (order.bytes > 0) {
    const int difference = std::memcmp(a.data(), b.data(), order.bytes);
    return (difference > 0) - (difference < 0);
  }
  for (const std::size_t offset : order.words) {
    std::uint32_t left;
    std::uint32_t right;
    std::memcpy(&left, a.data() + offset, sizeof left);
    std::memcpy(&right, b.data() + offset, sizeof right);
    if (left != right) return left < right ? -1 : 1;
  }
  return 0;
}

int order_of(const OrderCase& order, const std::string& a, const std::string& b) {
  const std::string left = '#' + a;  // so that the records lie at odd addresses
  const std::string right = '#' + b;
  return agent_type_ops(order.type)
      .compare(reinterpret_cast<const unsigned char*>(left.data() + 1),
               reinterpret_cast<const unsigned char*>(right.data() + 1));
}

TEST(Order, ComparesKeysOnly) {
  std::mt19937 random(1);
  std::string a(kMaxRecordSize, '\0');
  for (int i = 0; i < 20'000; ++i) {
    for (char& byte : a) byte = static_cast<char>(random());
    std::string b = a;
    b[random() % (i % 2 == 0 ? 12 : b.size())] = static_cast<char>(random());
    for (const OrderCase& order : kOrders) {
      ASSERT_EQ(order_of(order, a, b), expected_order(order, a, b)) << order.type;
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
  const auto number = static_cast<std::uint32_t>(index);
  switch (type) {
    case kHost:
      return ours(HostControlReply{status, index, 1, 2, 3, text, row_status});
    case kMatrix:
      return ours(MatrixControlReply{status, index, 1, 2, 3, text, row_status});
    case kPdist:
      return ours(PdistControlReply{status, index, 1, 2, 3, text, row_status});
    case kNlHost:
    case kNlMatrix:
      return ours(NlControlReply{status, index, 2, 3, 4, 5, 6, 7, 8, 9, 10, text, row_status});
    case kVlan:
    case kPrio:
      return ours(SmonControlReply{status, index, 2, 3, text, row_status});
    case kDsStats:
      return ours(DsStatsControlReply{status, number, 2, 3, 4, text, row_status});
    case kDsPdist:
      return ours(DsPdistControlReply{status, index, 2, 3, 4, text, 5, 6, 7, row_status});
    default:
      return ours(DsHostControlReply{status, index, 2, 3, 4, 5, 6, 7, 8, 9, text, row_status});
  }
}

struct ScanCase {
  std::uint32_t type;
  rpcproc_t procedure;
  std::vector<int> more;  // adopted beside 1 and 70000
};
const ScanCase kScans[] = {
    {kHost, 9, {}},      {kMatrix, 16, {}},  {kPdist, 24, {}}, {kNlHost, 32, {}},
    {kNlMatrix, 35, {}}, {kVlan, 76, {8}},   {kPrio, 79, {8}}, {kDsStats, 72, {7, 12}},
    {kDsPdist, 133, {}}, {kDsHost, 135, {}},
};

TEST(ControlScan, AdoptsValidRowsOfOurOwner) {
  using namespace std::string_view_literals;
  for (const auto& [type, procedure, more] : kScans) {
    SCOPED_TRACE(procedure);
    const auto row = [type = type](int index, std::string_view owner, int row_status) {
      return ScriptedClient::Reply(control_row(type, 0, index, owner, row_status));
    };
    const std::vector<ScriptedClient::Reply> replies = {row(1, "LocalMgr", 1),
                                                        row(2, "LocalMgr2", 1),
                                                        row(3, "LocalMg", 1),
                                                        row(4, "localmgr", 1),
                                                        row(5, "", 1),
                                                        row(6, "LocalMgr\0"sv, 1),
                                                        row(7, "LocalMgr", 3),
                                                        row(8, "monitor", 1),
                                                        row(9, "monitor", 2),
                                                        row(10, "monitor2", 1),
                                                        row(11, "Monitor", 1),
                                                        row(12, "LocalMgr", 0),
                                                        row(70000, "LocalMgr", 1),
                                                        control_row(type, 1, 9, "LocalMgr", 1)};
    std::vector<std::pair<std::uint32_t, std::uint32_t>> expected{{type, 1}};
    for (const int index : more) expected.emplace_back(type, index);
    expected.emplace_back(type, 70000);
    for (const bool succeeds : {true, false}) {
      ScriptedClient agent(replies);
      RecordingAdopter adopter;
      adopter.succeeds = succeeds;
      take_log();
      agent_type_ops(type).add_active(agent.client(), adopter);
      EXPECT_EQ(adopter.adopted, expected);
      EXPECT_EQ(take_log(), std::vector(succeeds ? 0 : expected.size(),
                                        warning_line(kTypeFacts[type].add_failed)));
      std::vector<ScriptedClient::Call> calls;
      for (const int after : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 70000}) {
        calls.push_back({procedure, theirs<ControlKey>({after, 2})});
      }
      EXPECT_EQ(agent.calls(), calls);
    }
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
