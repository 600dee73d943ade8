#include "minitapd/script.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "agent_process.h"
#include "minitapd/scripted_source.h"

namespace minitapd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using testing::write_file;

TEST(Script, NamesThePlaceOfEveryError) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"host": [)", "parse error"},
      {R"([])", "wants an object"},
      {R"({"hosts": []})", "hosts: unknown key"},
      {R"({"host": {}})", "host: wants an array"},
      {R"({"host": [{"index": 1}, {}]})", "host[1].index: is missing"},
      {R"({"host": [{"index": 4294967296}]})", "host[0].index: wants an integer"},
      {R"({"host": [{"index": 1, "adress": ""}]})", "host[0].adress: unknown key"},
      {R"({"host": [{"index": 1, "address": "2:0"}]})", "host[0].address: wants pairs"},
      {R"({"host": [{"index": 1, "counters": [1, 2]}]})", "host[0].counters: wants 7 counters"},
      {R"({"prio": [{"index": 1, "counters": [1, -2]}]})", "prio[0].counters[1]: wants a counter"},
      {R"({"prio": [{"index": 1, "counters": [1, "18446744073709551616"]}]})", "counters[1]"},
      {R"({"control": {"host": [{"index": 1, "owner": 7}]}})", "host[0].owner: wants a string"},
      {R"({"batch": 101})", "batch: wants an integer, 0 to 100"},
      {R"({"faults": [{"procedure": 12, "action": "close"}]})", "procedure: no such procedure"},
      {R"({"faults": [{"procedure": 11, "action": "explode"}]})", "no such action: explode"},
      {R"({"faults": [{"procedure": 11, "action": "drip"}]})", "bytes: a drip wants"},
      {R"({"faults": [{"procedure": 11, "action": "delay", "seconds": -1}]})", "seconds: wants"},
      {R"({"replies": {"11": []}})", "replies.11: wants at least one reply"},
      {R"({"replies": {"184": [[]]}})", "replies.184: unknown key"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_THAT([script = text] { (void)parse_script(script); },
                ThrowsMessage<ScriptError>(HasSubstr(message)))
        << text;
  }
}

// The tags of the protocols behind a local index, under control index 1.
std::vector<std::uint32_t> served(ScriptedSource& source, int start, std::size_t limit = 100) {
  std::vector<Row> rows;
  source.rows_after(Table::pdist, 1, {.numbers = {start}, .addresses = {}}, limit, rows);
  std::vector<std::uint32_t> tags;
  for (const Row& row : rows) tags.push_back(row.detail);
  return tags;
}

TEST(ScriptedSource, ServesFileOrderFromTheAskedKeyOn) {
  ScriptedSource source(write_file("order.json", R"({
    "batch": 4, "control": {"host": [{"index": 5}, {"index": 2}, {"index": 7}]}, "pdist": [
    {"index": 2, "local_index": 1, "tag": 100}, {"index": 1, "local_index": 9, "tag": 101},
    {"index": 1, "local_index": 3, "tag": 102}, {"index": 1, "local_index": 9, "tag": 103},
    {"index": 2, "local_index": 3, "tag": 104}, {"index": 1, "local_index": 5, "tag": 105}]})"));
  EXPECT_THAT(served(source, 0), ElementsAre(101, 102, 103, 104));
  EXPECT_THAT(served(source, 0, 2), ElementsAre(101, 102));
  EXPECT_THAT(served(source, 9), ElementsAre(104, 105)) << "behind the last 9";
  EXPECT_THAT(served(source, 3), ElementsAre(103, 104, 105));
  EXPECT_THAT(served(source, 4), ElementsAre(101, 102, 103, 104));
  EXPECT_THAT(served(source, 5), ElementsAre());
  const std::pair<int, int> control[] = {{0, 5}, {5, 2}, {2, 7}, {7, 0}, {6, 7}, {1, 5}, {9, 0}};
  for (const auto& [asked, expected] : control) {
    const ControlRow* row = source.control_row(Table::host, asked, true);
    EXPECT_EQ(row != nullptr ? row->index : 0, expected) << asked;
  }
}

TEST(ScriptedSource, CountsCallsUntilTheSectionChanges) {
  const std::string faults = R"("faults": [{"procedure": 11, "call": 2, "action": "close"}])";
  const std::string path = write_file("replaced.json", "{" + faults + "}");
  ScriptedSource source(path);
  EXPECT_EQ(source.next_fault(11), nullptr);
  write_file("replaced.json", R"({"sistem": {}, )" + faults + "}");
  ::testing::internal::CaptureStderr();
  source.refresh();
  source.refresh();  // said once
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "minitapd: " + path + ": sistem: unknown key\n");
  write_file("replaced.json", R"({"system": {"up_time": 3}, )" + faults + "}");
  source.refresh();
  EXPECT_EQ(source.system_info().up_time, 3U);
  EXPECT_NE(source.next_fault(11), nullptr);
  write_file("replaced.json", R"({"generation": 1, )" + faults + "}");
  source.refresh();
  EXPECT_EQ(source.next_fault(11), nullptr);
  EXPECT_NE(source.next_fault(11), nullptr);
}

}  // namespace
}  // namespace minitapd
