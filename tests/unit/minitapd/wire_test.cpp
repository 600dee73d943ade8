// Every member of every argument and reply, word by word from the agent's binary.
#include <gtest/gtest.h>

#include <string>

#include "agent_process.h"

namespace minitapd::testing {
namespace {

const char* const kScript = R"({
  "system": {"descr": "d", "up_time": 1, "text_2": "22", "text_3": "333", "text_4": "4444",
             "services": 5},
  "control": {
    "host": [{"index": 11, "owner": "mine", "status": -1, "fields": [1, 2, 3]}],
    "matrix": [{"index": 12, "owner": "mine", "fields": [1, 2, 3]}],
    "pdist": [{"index": 13, "owner": "mine", "fields": [1, 2, 3]}],
    "nlhost": [{"index": 14, "owner": "mine", "fields": [1, 2, 3, 4, 5, 6, 7, 8, 9]}],
    "nlmatrix": [{"index": 15, "owner": "mine", "fields": [1, 2, 3, 4, 5, 6, 7, 8, 9]}],
    "vlan": [{"index": 16, "owner": "mine", "fields": [8, 9]}],
    "prio": [{"index": 17, "owner": "mine", "fields": [0, 9], "data_source": 8}],
    "dsstats": [{"index": 18, "owner": "mine", "fields": [7, 8, 9]}],
    "dspdist": [{"index": 19, "owner": "mine", "fields": [4, 5, 6, 7, 8, 9]}],
    "dshost": [{"index": 20, "owner": "mine", "fields": [2, 3, 4, 5, 6, 7, 8, 9]}]},
  "host": [{"index": 101, "address": "0A:ff", "counters": [1,2,3,4,5,6,7], "creation_order": 9}],
  "matrix": [{"index": 102, "source": "", "dest": "0b0c", "counters": [1, 2, 3]}],
  "pdist": [{"index": 103, "local_index": -1, "tag": 4294967295, "status": -2,
             "counters": [18446744073709551615, "30064771080"]}],
  "pdist_totals": [{"index": 103, "status": 5, "counters": [6, "30064771080"]}],
  "nlhost": [{"index": 104, "local_index": 31, "address": "0a:00", "counters": [1, 2, 3, 4, 5],
              "create_time": 6, "time_mark": 7, "status": 8}],
  "nlmatrix": [{"index": 105, "local_index": 31, "source": "0a", "dest": "0b", "counters": [1, 2],
                "create_time": 3, "time_mark": 4, "status": 5}],
  "vlan": [{"index": 106, "id": 31, "counters": [1, 2, 3, 4], "create_time": 5}],
  "prio": [{"index": 107, "id": 0, "counters": [1, 2]}],
  "dsstats": [{"index": 108, "group": 31, "counters": [1, 2, 3, 4]}],
  "dspdist": [{"index": 109, "group": 31, "local_index": 32, "counters": [1, 2], "time_mark": 3}],
  "dshost": [{"index": 110, "group": 31, "local_index": 32, "address": "0a", "address_word": 33,
              "counters": [1, 2, 3, 4], "time_mark": 5}],
  "dsmatrix": [{"index": 111, "group": 31, "local_index": 32, "source": "0a", "dest": "0b",
                "key_word_1": 33, "key_word_2": 34, "key_word_3": 35, "counters": [1, 2],
                "time_mark": 3}]})";

constexpr std::uint32_t kMine = 0x6d696e65;  // "mine"
constexpr std::uint32_t kMax = 0xffffffff;
const std::string kZeros = ":00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00";

const struct {
  std::string trace;  // begins with the procedure
  Words argument;
  Words reply;
} kCalls[] = {
    // clang-format off
    {"0 agent_null", {}, {0}},
    {"1 agent_system_info", {},
     {1, 0x64000000, 1, 2, 0x32320000, 3, 0x33333300, 4, 0x34343434, 0, 5}},
    {"9 host_control_getnext index=0 request=2", {0, 2}, {0, 11, 1, 2, 3, 4, kMine, kMax}},
    {"9 host_control_getnext index=11 request=1", {11, 1}, {0, 11, 1, 2, 3, 4, kMine, kMax}},
    {"9 host_control_getnext index=11 request=2", {11, 2}, {1, 0, 0, 0, 0, 0, 0}},
    {"9 host_control_getnext index=11 request=3", {11, 3}, {1, 0, 0, 0, 0, 0, 0}},
    {"16 matrix_control_getnext index=0 request=2", {0, 2}, {0, 12, 1, 2, 3, 4, kMine, 1}},
    {"24 pdist_control_getnext index=0 request=2", {0, 2}, {0, 13, 1, 2, 3, 4, kMine, 1}},
    {"32 nlhost_control_getnext index=0 request=2", {0, 2},
     {0, 14, 1, 2, 3, 4, 5, 6, 7, 8, 9, 4, kMine, 1}},
    {"35 nlmatrix_control_getnext index=0 request=2", {0, 2},
     {0, 15, 1, 2, 3, 4, 5, 6, 7, 8, 9, 4, kMine, 1}},
    {"76 vlan_control_getnext index=0 request=2", {0, 2}, {0, 16, 8, 9, 4, kMine, 1}},
    {"79 prio_control_getnext index=0 request=2", {0, 2}, {0, 17, 8, 9, 4, kMine, 1}},
    {"72 dsstats_control_getnext index=0 request=2", {0, 2}, {0, 18, 7, 8, 9, 4, kMine, 1}},
    {"133 dspdist_control_getnext index=0 request=2", {0, 2},
     {0, 19, 4, 5, 6, 4, kMine, 7, 8, 9, 1}},
    {"135 dshost_control_getnext index=0 request=2", {0, 2},
     {0, 20, 2, 3, 4, 5, 6, 7, 8, 9, 4, kMine, 1}},
    {"11 host_table_get index=101 address=02:ff count=1 mode=3", {101, 2, 2, 255, 1, 3},
     {1, 1, 2, 10, 255, 9, 101, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7}},
    {"18 matrix_table_get index=102 source= dest=01 count=1 mode=3 direction=2",
     {102, 0, 1, 1, 1, 3, 2}, {1, 1, 0, 2, 11, 12, 102, 0, 1, 0, 2, 0, 3}},
    {"26 pdist_table_get index=103 local_index=1 count=2 mode=3", {103, 1, 3, 2},
     {1, kMax - 1, 103, kMax, kMax, kMax, 7, 8, kMax}},
    {"184 pdist_source_totals_get index=103", {103}, {5, 0, 6, 7, 8}},
    {"34 nlhost_table_get index=104 local_index=2 address=ff count=7 mode=5 time_mark=1 "
     "reserved_1=3 reserved_2=6", {104, 1, 2, 3, 1, 255, 5, 6, 7},
     {1, 8, 7, 2, 10, 0, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 6, 104, 31, 0}},
    {"37 nlmatrix_table_get index=105 local_index=2 source=fe dest=ff count=9 mode=6 time_mark=1 "
     "reserved_1=3 reserved_2=7 reserved_3=8", {105, 1, 2, 3, 1, 254, 1, 255, 6, 7, 8, 9},
     {1, 5, 4, 1, 10, 1, 11, 0, 1, 0, 2, 3, 105, 31, 0}},
    // No number but a priority has a sign; priority 0 stands behind -1, and none behind 0.
    {"78 vlan_table_get index=106 id=0 request=2", {106, 0, 2},
     {0, 31, 0, 1, 0, 2, 0, 3, 0, 4, 5, 106}},
    {"78 vlan_table_get index=106 id=4294967295 request=2", {106, kMax, 2},
     {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"81 prio_table_get index=107 id=-1 request=2", {107, kMax, 2}, {0, 0, 0, 1, 0, 2, 107}},
    {"81 prio_table_get index=107 id=0 request=2", {107, 0, 2}, {1, 0, 0, 0, 0, 0, 0}},
    {"74 dsstats_table_get index=108 group=31 request=1", {108, 31, 1},
     {0, 31, 108, 0, 1, 0, 2, 0, 3, 0, 4}},
    {"137 dspdist_table_get index=109 group=2 local_index=3 request=2 time_mark=1",
     {109, 1, 2, 3, 2}, {0, 109, 3, 31, 32, 0, 1, 0, 2}},
    // Addresses of 20 bytes whose first is 10 or 11.
    {"138 dshost_table_get index=110 group=2 local_index=3 address_word=5 address=0a" + kZeros +
     " request=2 time_mark=1",
     {110, 1, 2, 3, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 2},
     {0, 110, 5, 31, 32, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      33, 0, 1, 0, 2, 0, 3, 0, 4}},
    {"141 dsmatrix_table_get index=111 group=2 local_index=3 key_word_1=6 key_word_2=7 "
     "key_word_3=8 source=0a" + kZeros + " dest=0b" + kZeros + " request=2 time_mark=1",
     {111, 1, 2, 3, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6, 7, 8, 2},
     {0, 111, 3, 31, 32, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 33, 34, 35, 0, 1, 0, 2}},
    // clang-format on
};

TEST(Wire, EveryMemberIsInItsPlace) {
  const std::string trace = write_file("trace", "before\n");
  const AgentProcess agent("--script " + write_file("wire.json", kScript) + " --trace " + trace);
  const Connection connection(agent);
  std::string lines = "before\n";
  for (const auto& call : kCalls) {
    const auto procedure = static_cast<std::uint32_t>(std::stoul(call.trace));
    EXPECT_EQ(connection.call(procedure, call.argument), call.reply) << call.trace;
    lines += call.trace + "\n";
  }
  EXPECT_EQ(tally::read_file(trace), lines);
}

}  // namespace
}  // namespace minitapd::testing
