#include "minitapd/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "minitapd/scripted_source.h"

namespace minitapd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A script file that is replaced as its users do it: written beside and renamed.
class ScriptFile {
 public:
  explicit ScriptFile(const std::string& text) { replace(text); }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  ~ScriptFile() { std::filesystem::remove(path_); }
  void replace(const std::string& text) const {
    const std::string fresh = path_ + ".new";
    std::ofstream(fresh) << text;
    std::filesystem::rename(fresh, path_);
  }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_ = ::testing::TempDir() + "script_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
};

TEST(Script, NamesThePlaceOfEveryError) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"host": [)", "parse error"},
      {R"([])", "wants an object"},
      {R"({"hosts": []})", "hosts: unknown key"},
      {R"({"host": {}})", "host: wants an array"},
      {R"({"host": [{"index": 1}, {}]})", "host[1].index: is missing"},
      {R"({"host": [{"index": "1"}]})", "host[0].index: wants an integer"},
      {R"({"host": [{"index": 4294967296}]})", "host[0].index: wants an integer"},
      {R"({"host": [{"index": 1, "adress": ""}]})", "host[0].adress: unknown key"},
      {R"({"host": [{"index": 1, "tag": 1}]})", "host[0].tag: unknown key"},
      {R"({"host": [{"index": 1, "address": "2:0"}]})", "host[0].address: wants pairs"},
      {R"({"host": [{"index": 1, "address": "02:"}]})", "host[0].address: wants pairs"},
      {R"({"host": [{"index": 1, "counters": [1, 2]}]})", "host[0].counters: wants 7 counters"},
      {R"({"prio": [{"index": 1, "counters": [1, -2]}]})", "prio[0].counters[1]: wants a counter"},
      {R"({"prio": [{"index": 1, "counters": [1, 1.5]}]})", "counters[1]: wants a counter"},
      {R"({"prio": [{"index": 1, "counters": [1, "18446744073709551616"]}]})", "counters[1]"},
      {R"({"prio": [{"index": 1, "counters": [1, "0x1"]}]})", "counters[1]: wants a counter"},
      {R"({"control": {"dsmatrix": []}})", "control.dsmatrix: unknown key"},
      {R"({"control": {"host": [{"index": 1, "owner": 7}]}})", "host[0].owner: wants a string"},
      {R"({"control": {"host": [{"index": 1, "fields": [0,0,0,0,0,0,0,0,0,0]}]}})",
       "fields[9]: too many"},
      {R"({"system": {"uptime": 1}})", "system.uptime: unknown key"},
      {R"({"batch": 101})", "batch: wants an integer, 0 to 100"},
      {R"({"faults": [{"action": "close"}]})", "faults[0].procedure: is missing"},
      {R"({"faults": [{"procedure": 12, "action": "close"}]})", "procedure: no such procedure"},
      {R"({"faults": [{"procedure": 11, "action": "explode"}]})", "no such action: explode"},
      {R"({"faults": [{"procedure": 11, "action": "drip"}]})", "bytes: a drip wants"},
      {R"({"faults": [{"procedure": 11, "action": "delay", "seconds": -1}]})", "seconds: wants"},
      {R"({"faults": [{"procedure": 11, "action": "raw", "hex": "0g"}]})", "hex: wants pairs"},
      {R"({"replies": {"11": []}})", "replies.11: wants at least one reply"},
      {R"({"replies": {"184": [[]]}})", "replies.184: unknown key"},
      {R"({"replies": {"18": [[{"index": 1, "address": ""}]]}})",
       "replies.18[0][0].address: unknown key"},
  };
  for (const auto& [text, message] : cases) {
    SCOPED_TRACE(text);
    try {
      (void)parse_script(text);
      ADD_FAILURE() << "was taken";
    } catch (const ScriptError& error) {
      EXPECT_THAT(error.what(), HasSubstr(message));
    }
  }
  const std::string long_owner(256, 'x');
  EXPECT_THROW((void)parse_script(R"({"control": {"host": [{"index": 1, "owner": ")" + long_owner +
                                  R"("}]}})"),
               ScriptError);
}

TEST(Script, ReadsNumbersAndAddressesOfEveryForm) {
  const Script script = parse_script(R"({
    "pdist": [{"index": 1, "local_index": -1, "tag": 4294967295,
               "counters": [18446744073709551615, "18446744073709551614"]}],
    "prio": [{"index": 1, "id": -1}],
    "matrix": [{"index": 1, "source": "", "dest": "0A:ff:0102"}],
    "dshost": [{"index": 1, "address": "01:02", "address_word": 9}]})");
  const Row& pdist = script.rows[2].at(0);
  EXPECT_EQ(pdist.key.numbers[0], 4294967295);
  EXPECT_EQ(pdist.detail, 4294967295U);
  EXPECT_EQ(pdist.counters[0], 18446744073709551615U);
  EXPECT_EQ(pdist.counters[1], 18446744073709551614U);
  EXPECT_EQ(script.rows[6].at(0).key.numbers[0], -1);
  EXPECT_EQ(script.rows[1].at(0).key.addresses[0], "");
  EXPECT_EQ(script.rows[1].at(0).key.addresses[1], "\x0a\xff\x01\x02");
  EXPECT_EQ(script.rows[9].at(0).key.addresses[0], "\x01\x02" + std::string(18, '\0'));
  EXPECT_EQ(script.rows[9].at(0).key.numbers[2], 9);
}

// Rows are told apart by their first counter.
std::vector<std::uint64_t> served(ScriptedSource& source, Table table, std::int32_t index,
                                  const Key& start, std::size_t limit = 100) {
  std::vector<Row> rows;
  source.rows_after(table, index, start, limit, rows);
  std::vector<std::uint64_t> out;
  for (const Row& row : rows) out.push_back(row.counters[0]);
  return out;
}

Key number(std::int64_t value) {
  return {.numbers = {value}, .addresses = {}};
}

TEST(ScriptedSource, ServesFileOrderFromTheAskedKeyOn) {
  const ScriptFile file(R"({"batch": 4, "pdist": [
    {"index": 2, "local_index": 1, "counters": [100, 0]},
    {"index": 1, "local_index": 9, "counters": [101, 0]},
    {"index": 1, "local_index": 3, "counters": [102, 0]},
    {"index": 1, "local_index": 9, "counters": [103, 0]},
    {"index": 2, "local_index": 3, "counters": [104, 0]},
    {"index": 1, "local_index": 5, "counters": [105, 0]}],
    "vlan": [
    {"index": 1, "id": 0, "counters": [200, 0, 0, 0]},
    {"index": 1, "id": 7, "counters": [201, 0, 0, 0]}],
    "prio": [
    {"index": 1, "id": 0, "counters": [300, 0]}]})");
  ScriptedSource source(file.path());
  EXPECT_THAT(served(source, Table::pdist, 1, {}), ElementsAre(101, 102, 103, 104));
  EXPECT_THAT(served(source, Table::pdist, 1, {}, 2), ElementsAre(101, 102));
  EXPECT_THAT(served(source, Table::pdist, 1, number(9)), ElementsAre(104, 105));  // the last 9
  EXPECT_THAT(served(source, Table::pdist, 1, number(3)), ElementsAre(103, 104, 105));
  EXPECT_THAT(served(source, Table::pdist, 1, number(4)), ElementsAre(101, 102, 103, 104));
  EXPECT_THAT(served(source, Table::pdist, 1, number(5)), ElementsAre());
  EXPECT_THAT(served(source, Table::pdist, 1, number(10)), ElementsAre());
  EXPECT_THAT(served(source, Table::pdist, 2, number(1)), ElementsAre(101, 102, 103, 104));
  EXPECT_THAT(served(source, Table::pdist, 3, {}), ElementsAre());
  // One row a call: zero is a key like others, and -1 stands before priority 0.
  EXPECT_THAT(served(source, Table::vlan, 1, number(0), 1), ElementsAre(201));
  EXPECT_THAT(served(source, Table::prio, 1, number(-1), 1), ElementsAre(300));
  EXPECT_THAT(served(source, Table::prio, 1, number(0), 1), ElementsAre());
  EXPECT_EQ(source.row_at(Table::pdist, 1, number(9))->counters[0], 101U);
  EXPECT_FALSE(source.row_at(Table::pdist, 1, number(1)).has_value());
}

TEST(ScriptedSource, WalksControlRowsInFileOrder) {
  const ScriptFile file(R"({"control": {"host": [
      {"index": 5, "data_source": 3}, {"index": 2, "owner": "other", "status": 2,
       "fields": [1, 2, 3]}, {"index": 7}]}})");
  ScriptedSource source(file.path());
  const std::pair<int, int> steps[] = {{0, 5}, {5, 2}, {2, 7}, {7, 0}, {6, 7}, {1, 5}, {9, 0}};
  for (const auto& [asked, expected] : steps) {
    const ControlRow* row = source.control_row(Table::host, asked, true);
    EXPECT_EQ(row != nullptr ? row->index : 0, expected) << asked;
  }
  const ControlRow* other = source.control_row(Table::host, 2, false);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->owner, "other");
  EXPECT_EQ(other->status, 2);
  EXPECT_EQ(other->fields[2], 3U);
  EXPECT_EQ(source.control_row(Table::host, 5, false)->fields[0], 3U);
  EXPECT_EQ(source.control_row(Table::host, 0, false), nullptr);
}

TEST(ScriptedSource, ReadsAReplacedFileAndKeepsTheOldOneWhenItIsBad) {
  const auto up_time = [](int value) {
    return R"({"system": {"up_time": )" + std::to_string(value) + "}}";
  };
  const ScriptFile file(up_time(1));
  ScriptedSource source(file.path());
  file.replace(up_time(2));  // same size
  source.refresh();
  EXPECT_EQ(source.system_info().up_time, 2U);
  file.replace(R"({"sistem": {}})");
  ::testing::internal::CaptureStderr();
  source.refresh();
  source.refresh();  // said once
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "minitapd: " + file.path() + ": sistem: unknown key\n");
  EXPECT_EQ(source.system_info().up_time, 2U);
  file.replace(up_time(3));
  source.refresh();
  EXPECT_EQ(source.system_info().up_time, 3U);
  EXPECT_THROW(ScriptedSource("/nonexistent/script.json"), ScriptError);
}

TEST(ScriptedSource, CountsCallsUntilTheSectionChanges) {
  const auto script = [](int generation, int up_time) {
    return R"({"faults": [{"procedure": 11, "call": 2, "action": "close"},
                          {"procedure": 18, "action": "no_answer"}],
               "replies": {"11": [[{"index": 1, "counters": [1,0,0,0,0,0,0]}],
                                  [{"index": 1, "counters": [2,0,0,0,0,0,0]},
                                   {"index": 1, "counters": [3,0,0,0,0,0,0]}]],
                           "9": [[{"index": 8}], []]},
               "generation": )" +
           std::to_string(generation) + R"(, "system": {"up_time": )" + std::to_string(up_time) +
           "}}";
  };
  const ScriptFile file(script(1, 1));
  ScriptedSource source(file.path());
  for (int generation = 1; generation <= 2; ++generation) {
    file.replace(script(generation, 1));
    source.refresh();
    EXPECT_EQ(source.next_fault(11), nullptr);
    EXPECT_THAT(served(source, Table::host, 1, {}), ElementsAre(1));
    EXPECT_EQ(source.control_row(Table::host, 0, true)->index, 8);
    file.replace(script(generation, 2));  // other sections do not matter
    source.refresh();
    ASSERT_NE(source.next_fault(11), nullptr);
    EXPECT_EQ(source.next_fault(11), nullptr);
    EXPECT_THAT(served(source, Table::host, 1, {}, 1), ElementsAre(2, 3));  // more than asked for
    EXPECT_THAT(served(source, Table::host, 1, {}), ElementsAre(2, 3));
    EXPECT_EQ(source.control_row(Table::host, 0, true), nullptr);
    EXPECT_EQ(source.next_fault(18)->action, FaultAction::no_answer);
    EXPECT_EQ(source.next_fault(18)->action, FaultAction::no_answer);
  }
}

}  // namespace
}  // namespace minitapd
