// The scan of the control tables.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/type_facts.h"
#include "support/scripted_client.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

constexpr const char* kMine = "LocalMgr";

using Adopted = std::pair<std::uint32_t, std::uint32_t>;

class RecordingAdopter final : public Adopter {
 public:
  bool adopt(std::uint32_t type, std::uint32_t index) override {
    adopted.emplace_back(type, index);
    return succeeds;
  }
  std::vector<Adopted> adopted;
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
    ScriptedClient agent({control_row(70000, kMine, before, behind),
                          control_row(6, std::string(kMine, 9), before, behind)});
    RecordingAdopter adopter;
    adopter.succeeds = false;
    take_log();
    agent_type_ops(type).add_active(agent.client(), adopter);
    EXPECT_EQ(adopter.adopted, (std::vector<Adopted>{{type, 70000}}));
    EXPECT_EQ(take_log(), std::vector{warning_line(kTypeFacts[type].add_failed)});
  }
}

TEST(ControlScan, EndsWhenTheAgentDoesNotGoOn) {
  RecordingAdopter adopter;
  const ScriptedClient::Reply other_status = Bytes(control_row(3, kMine).size(), 1);
  const ScriptedClient::Reply cut_short = Bytes(8);
  for (const auto& end : {ScriptedClient::Reply(), other_status, cut_short}) {
    ScriptedClient agent(
        std::vector<ScriptedClient::Reply>{control_row(1, kMine), control_row(2, kMine), end});
    adopter.adopted.clear();
    host_ops.add_active(agent.client(), adopter);
    EXPECT_EQ(adopter.adopted, (std::vector<Adopted>{{kHost, 1}, {kHost, 2}}));
    EXPECT_EQ(agent.calls().size(), 3U);
  }
  EXPECT_TRUE(take_log().empty());
  adopter.adopted.clear();
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
