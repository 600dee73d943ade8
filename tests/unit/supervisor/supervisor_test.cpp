// What no supervisor can cause, or not in reasonable time: an endless walk, missing arguments, and
// memory that runs out. The end-to-end tests cover the rest.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemon/base/stop.h"
#include "snmp/ber_vectors.h"
#include "snmp/system_faults.h"
#include "supervisor/bindings.h"
#include "supervisor/etherstats.h"
#include "supervisor/ifstats.h"
#include "supervisor/query.h"
#include "supervisor/row_list.h"
#include "supervisor/supvlan.h"
#include "support/syslog_capture.h"

namespace tally {
namespace {

using Lines = std::vector<LogLine>;

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
  for (const std::uint32_t last : {65536U, 65537U}) {
    std::uint32_t visited = 0;
    walk_rows(
        [last](std::uint32_t after) { return std::optional(Row{after < last ? after + 1 : 0}); },
        [&visited](const Row&) { ++visited; });
    EXPECT_EQ(visited, 65536U);
    EXPECT_EQ(take_log(), last == 65536
                              ? Lines{}
                              : Lines{warning_line("A table of the supervisor has more "
                                                   "than 65536 rows, ignoring the rest.")});
  }
}

TEST(IfaceCalcDelta, MissingRecordsAreLogged) {
  unsigned char one[120] = {};
  EXPECT_EQ(ifacecalc_delta(nullptr, one, one, 1), -1);
  EXPECT_EQ(ifacecalc_delta(one, nullptr, one, 1), -1);
  EXPECT_EQ(ifacecalc_delta(one, one, nullptr, 1), -1);
  EXPECT_EQ(take_log(), Lines(3, warning_line("ifacecalc_delta: NULL pointer!")));
}

// Any word is read as a word, signed or not; no other kind is taken for another.
TEST(AnswerReader, ReadsAValueAsItIsStored) {
  const std::pair<std::function<bool(AnswerReader&)>, std::set<ValueKind>> readers[] = {
      {[](AnswerReader& answer) { return answer.word() == 0x80000001; },
       {ValueKind::integer, ValueKind::unsigned32}},
      {[](AnswerReader& answer) { return answer.counter64() == 0x100000002; },
       {ValueKind::unsigned64}},
      {[](AnswerReader& answer) { return answer.octets().size() == 4; }, {ValueKind::octets}},
      {[](AnswerReader& answer) { return answer.last_sub_id() == 4; }, {ValueKind::oid}},
  };
  const PduPtr all = every_type(RESPONSE_PDU);
  for (const VarBind* binding = all->var_bind_list; binding; binding = binding->next_var) {
    const PduPtr pdu(MakePdu(RESPONSE_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
    ASSERT_EQ(LinkVarBind(pdu.get(), CloneVarBind(binding)), 0);
    for (const auto& [read, kinds] : readers) {
      const bool wanted = kinds.contains(value_kind(binding->type));
      AnswerReader answer(*pdu);
      EXPECT_EQ(read(answer), wanted) << binding->type;
      EXPECT_EQ(answer.ok(), wanted);
      (void)answer.word();  // there is only one binding
      EXPECT_FALSE(answer.ok());
    }
  }
}

// The client sends to itself: a request that could be made comes back, and is not a response.
TEST(Queries, EveryAllocationMayFail) {
  InitializeIO("test", "127.0.0.1");
  snmpio::agent_address.sin_port = 0;
  auto* const address = reinterpret_cast<sockaddr*>(&snmpio::agent_address);
  socklen_t size = sizeof snmpio::agent_address;
  ASSERT_EQ(bind(snmpio::fd, address, size), 0);
  ASSERT_EQ(getsockname(snmpio::fd, address, &size), 0);
  Schedule schedule = {};
  const std::function<void()> queries[] = {
      [&] { EXPECT_EQ(refresh_etherstats_rows(schedule), 0U); },
      [] { EXPECT_FALSE(etherstats_sample(1, 2)); },
      [] { EXPECT_FALSE(interface_state(1)); },
      [] { EXPECT_FALSE(named_interface_state(1)); },
      [] { EXPECT_FALSE(port_duplex("3/12")); },
      [] { EXPECT_FALSE(duplex_status(1)); },
      [&] { EXPECT_EQ(refresh_supvlan_rows(schedule), 0U); },
      [&] { EXPECT_EQ(refresh_ifstats_rows(schedule), 0U); },
      [] {  // which is otherwise for rows that are known
        const PduPtr pdu(MakePdu(GET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
        if (pdu) (void)add_vlan_pdu_varbind({4, 1, 2}, *pdu);  // or it has logged
      },
  };
  std::set<std::string> texts;
  for (std::size_t i = 0; i < std::size(queries); ++i) {
    bool failed = true;
    for (int failing = 1; failed; ++failing) {
      for (const std::size_t other : {i + 1, i + 2}) {
        queries[other % std::size(queries)]();  // leaves no binding that this one could take over
      }
      faults = {failing, 0};
      queries[i]();
      failed = std::exchange(faults, {}).mallocs >= failing;
    }
  }
  for (const LogLine& line : take_log()) {
    EXPECT_EQ(line.priority, kDebugPriority);
    texts.insert(line.text);
  }
  EXPECT_EQ(texts.size(), 8U * 3 + 9 * 2 + 7) << "each query's, each builder's, each failure's";
  CloseUp();
}

// This test comes last: the process stays in that state.
TEST(Stopping, NothingIsPolledAnyMore) {
  watch_for_stop([](void*) { return true; }, nullptr);
  for (const auto poll : {poll_etherstats, poll_supvlan, poll_ifstats}) EXPECT_EQ(poll(9, 1), 0);
  EXPECT_EQ(take_log(), Lines{});
}

}  // namespace
}  // namespace tally
