// What no supervisor can bring about, or not in a bearable time: a walk without an end, arguments
// that are missing, and memory that runs out. The end-to-end tests have all the rest.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "snmp/snmp.h"
#include "snmp/system_faults.h"
#include "supervisor/bindings.h"
#include "supervisor/etherstats_queries.h"
#include "supervisor/ifstats.h"
#include "supervisor/query.h"
#include "supervisor/supvlan.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

TEST(WalkRows, EndsWhereTheSupervisorDoesNotGoOn) {
  struct Row {
    std::uint32_t index;
  };
  const std::pair<std::vector<std::uint32_t>, std::size_t> cases[] = {
      {{}, 0}, {{0, 5}, 0}, {{1, 7, 4294967295, 0}, 3}, {{3, 3, 4}, 1}, {{3, 9, 4}, 2}};
  for (const auto& [answers, wanted] : cases) {
    std::size_t visited = 0;
    const auto next = [&answers = answers,
                       asked = 0U](std::uint32_t after) mutable -> std::optional<Row> {
      EXPECT_EQ(after, asked == 0 ? 0 : answers[asked - 1]);
      if (asked == answers.size()) return std::nullopt;
      return Row{answers[asked++]};
    };
    walk_rows(next, [&](const Row&) { ++visited; });
    EXPECT_EQ(visited, wanted);
  }
  std::uint32_t endless = 0;
  walk_rows([](std::uint32_t after) { return std::optional(Row{after + 1}); },
            [&endless](const Row&) { ++endless; });
  EXPECT_EQ(endless, 65536U);
  EXPECT_EQ(take_log(), std::vector{warning_line("A table of the supervisor has more than 65536 "
                                                 "rows, ignoring the rest.")});
}

TEST(IfaceCalcDelta, MissingRecordsAreLogged) {
  unsigned char one[120] = {};
  EXPECT_EQ(ifacecalc_delta(nullptr, one, one, 1), -1);
  EXPECT_EQ(ifacecalc_delta(one, nullptr, one, 1), -1);
  EXPECT_EQ(ifacecalc_delta(one, one, nullptr, 1), -1);
  EXPECT_EQ(take_log(), std::vector(3, warning_line("ifacecalc_delta: NULL pointer!")));
}

// The socket sends to itself, so a request whose memory suffices comes back and is no response.
TEST(Queries, EveryAllocationMayFail) {
  InitializeIO("test", "127.0.0.1");
  snmpio::agent_address.sin_port = 0;
  auto* const address = reinterpret_cast<sockaddr*>(&snmpio::agent_address);
  socklen_t size = sizeof snmpio::agent_address;
  ASSERT_EQ(bind(snmpio::fd, address, size), 0);
  ASSERT_EQ(getsockname(snmpio::fd, address, &size), 0);

  Schedule schedule = {};
  const std::pair<const char*, std::function<void()>> queries[] = {
      {"etherStatsStatus", [] { EXPECT_FALSE(next_etherstats_row(0)); }},
      {"etherStatsEntry", [] { EXPECT_FALSE(etherstats_sample(1, 2)); }},
      {"ifOperStatus", [] { EXPECT_FALSE(interface_state(1)); }},
      {"name, status, and last change", [] { EXPECT_FALSE(named_interface_state(1)); }},
      {"portDuplex", [] { EXPECT_FALSE(port_duplex("3/12")); }},
      {"duplexStatus", [] { EXPECT_FALSE(duplex_status(1)); }},
      {"smonVlanStatsControlStatus", [&] { EXPECT_EQ(refresh_supvlan_rows(schedule), 0U); }},
      {"get_ifNameAndOperStatus", [&] { EXPECT_EQ(refresh_ifstats_rows(schedule), 0U); }},
      {nullptr,  // parts of a query that are not its first, or whose row has to be found before
       [] {
         const PduPtr pdu(MakePdu(GET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
         if (pdu && add_iflastchange_varbind(1, *pdu) == 0)
           (void)add_vlan_pdu_varbind(smonVlanIdStatsEntry, 4, 1, 2, *pdu);
       }},
  };
  std::set<std::string> wanted;
  for (const auto& [name, query] : queries) {
    if (name) wanted.insert("Error building PDU for " + std::string(name) + ".");
    bool failed = true;
    for (int failing = 1; failed; ++failing) {
      FreeKeptRecords();
      faults = {failing, 0};
      query();
      failed = std::exchange(faults, {}).mallocs >= failing;
    }
  }
  std::set<std::string> logged;
  for (const LogLine& line : take_log()) {
    EXPECT_EQ(line.priority, kDebugPriority);
    logged.insert(line.text);
  }
  for (const char* number : {"1", "2", "3", "4", "6", "7"}) {
    wanted.insert("Error " + std::string(number) + " performing SNMP request.");
  }
  for (const char* object :
       {"for sysUpTime.", "for ifLastChange.", "for ifName.", "for ifOperStatus.", "for ifSpeed.",
        "for duplexStatus.", "for portDuplex.", "in add_pdu_varbind", "in add_vlan_pdu_varbind"}) {
    std::string text = object;
    wanted.insert("Error making OID " + text);
    if (text.back() == '.' && text != "for ifOperStatus.") text.pop_back();
    wanted.insert("Error making VarBind " + text);
  }
  for (const std::string& text : wanted) EXPECT_EQ(logged.count(text), 1U) << text;
  CloseUp();
}

}  // namespace
}  // namespace tally
