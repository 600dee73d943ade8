// The table of operations of the agent types: sizes, order, and the control scan.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/type_facts.h"
#include "support/scripted_client.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

TEST(AgentTypes, TableHasWholeRowsOrEmptyOnes) {
  for (std::uint32_t type = 0; type <= kTypeSlots; ++type) {
    SCOPED_TRACE(type);
    const CollectionOps& ops = agent_type_ops(type);
    const bool there = type < std::size(kTypeFacts);
    const TypeFacts facts = there ? kTypeFacts[type] : TypeFacts{};
    EXPECT_EQ(is_agent_type(type), there);
    EXPECT_EQ(ops.record_size, facts.key_size + 8 * facts.counters);
    for (const bool slot :
         {ops.upload != nullptr, ops.compare != nullptr, ops.calc_delta != nullptr,
          ops.calc_rate != nullptr, ops.rpc_getnext != nullptr}) {
      EXPECT_EQ(slot, there);
    }
    EXPECT_EQ(ops.add_active != nullptr, there && type != kDsMatrix);
  }
}

// The first difference of two records, in their first bytes as they lie, or in words as numbers.
int expected_order(const TypeFacts& type, const unsigned char* a, const unsigned char* b) {
  static const std::map<std::uint32_t, std::vector<std::size_t>> kWords = {// offsets
                                                                           {kPdist, {4}},
                                                                           {kVlan, {0}},
                                                                           {kPrio, {0}},
                                                                           {kDsStats, {0}},
                                                                           {kDsPdist, {0, 4}}};
  const auto words = kWords.find(type.type);
  if (words == kWords.end()) {
    const int difference = std::memcmp(a, b, type.key_size);
    return (difference > 0) - (difference < 0);
  }
  for (const std::size_t offset : words->second) {
    std::uint32_t pair[2];
    std::memcpy(&pair[0], a + offset, sizeof pair[0]);
    std::memcpy(&pair[1], b + offset, sizeof pair[1]);
    if (pair[0] != pair[1]) return pair[0] < pair[1] ? -1 : 1;
  }
  return 0;
}

TEST(Order, ComparesKeysOnly) {
  std::mt19937 random(1);
  unsigned char a[1 + kMaxRecordSize];
  unsigned char b[1 + kMaxRecordSize];
  for (int i = 0; i < 20'000; ++i) {
    for (unsigned char& byte : a) byte = static_cast<unsigned char>(random());
    std::memcpy(b, a, sizeof a);
    b[1 + random() % (i % 2 == 0 ? 12 : kMaxRecordSize)] = static_cast<unsigned char>(random());
    for (const TypeFacts& type : kTypeFacts) {
      // Records may lie at odd addresses.
      ASSERT_EQ(type.ops().compare(a + 1, b + 1), expected_order(type, a + 1, b + 1)) << type.name;
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

// A control row that is valid, with so many words of no interest before and behind its owner.
Bytes control_row(std::uint32_t index, std::string owner, int before = 3, int behind = 0) {
  Bytes bytes;
  append_word(bytes, 0);
  append_word(bytes, index);
  for (int word = 0; word < before; ++word) append_word(bytes, 9);
  append_word(bytes, static_cast<std::uint32_t>(owner.size()));
  owner.resize((owner.size() + 3) / 4 * 4);
  bytes.insert(bytes.end(), owner.begin(), owner.end());
  for (int word = 0; word < behind; ++word) append_word(bytes, 9);
  append_word(bytes, 1);
  return bytes;
}

// Which rows are adopted is shown end to end, but for an owner with a zero behind its name.
TEST(ControlScan, TellsWhatCannotBeAdopted) {
  const int words[][2] = {{3, 0}, {3, 0}, {3, 0}, {9, 0}, {9, 0},
                          {2, 0}, {2, 0}, {3, 0}, {3, 3}, {8, 0}};
  for (std::uint32_t type = 0; type < std::size(words); ++type) {
    const auto [before, behind] = words[type];
    ScriptedClient agent({control_row(70000, "LocalMgr", before, behind),
                          control_row(6, std::string("LocalMgr", 9), before, behind)});
    RecordingAdopter adopter;
    adopter.succeeds = false;
    take_log();
    agent_type_ops(type).add_active(agent.client(), adopter);
    EXPECT_EQ(adopter.adopted, (std::vector{std::pair{type, 70000U}}));
    EXPECT_EQ(take_log(), std::vector{warning_line(kTypeFacts[type].add_failed)});
  }
}

TEST(ControlScan, EndsWhenTheAgentDoesNotGoOn) {
  RecordingAdopter adopter;
  ScriptedClient stuck([](const auto&) { return control_row(7, "other"); });
  host_ops.add_active(stuck.client(), adopter);
  EXPECT_EQ(stuck.calls().size(), 2U);
  int calls = 0;
  ScriptedClient circle([&](const auto&) { return control_row(++calls % 2 == 0 ? 1U : 2U, ""); });
  host_ops.add_active(circle.client(), adopter);
  EXPECT_EQ(circle.calls().size(), 65535U);
  EXPECT_TRUE(adopter.adopted.empty());
}

}  // namespace
}  // namespace tally
