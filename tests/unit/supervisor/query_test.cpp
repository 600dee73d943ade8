// The builders of bindings, and the reader of answers that are not as they should be.
#include "supervisor/query.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "snmp/make_lib.h"
#include "supervisor/bindings.h"

namespace tally {
namespace {

PduPtr new_pdu() {
  return PduPtr(MakePdu(GET_REQUEST_PDU, 1, 0, 0, nullptr, nullptr, 0, 0, 0));
}

std::string dotted(std::span<const std::uint32_t> sids) {
  std::ostringstream text;
  for (std::size_t i = 0; i < sids.size(); ++i) text << (i == 0 ? "" : ".") << sids[i];
  return text.str();
}

TEST(Bindings, NameWhatIsAskedFor) {
  const struct {
    int (*add)(Pdu& pdu);
    const char* name;
  } cases[] = {
      {add_sysuptime_varbind, "1.3.6.1.2.1.1.3.0"},
      {[](Pdu& pdu) { return add_ifspeed_varbind(7, pdu); }, "1.3.6.1.2.1.2.2.1.5.7"},
      {[](Pdu& pdu) { return add_iflastchange_varbind(7, pdu); }, "1.3.6.1.2.1.2.2.1.9.7"},
      {[](Pdu& pdu) { return add_ifoperstatus_varbind(7, pdu); }, "1.3.6.1.2.1.2.2.1.8.7"},
      {[](Pdu& pdu) { return add_ifname_varbind(0xFFFFFFFF, pdu); },
       "1.3.6.1.2.1.31.1.1.1.1.4294967295"},
      {[](Pdu& pdu) { return add_duplexstatus_varbind(7, pdu); }, "1.3.6.1.2.1.10.7.2.1.19.7"},
      {[](Pdu& pdu) { return add_pdu_varbind(etherStatsEntry, 21, 9, pdu); },
       "1.3.6.1.2.1.16.1.1.1.21.9"},
      {[](Pdu& pdu) { return add_pdu_varbind(etherStatsEntry, 1, 0, pdu); },
       "1.3.6.1.2.1.16.1.1.1.1.0"},
      {[](Pdu& pdu) { return add_pdu_varbind(etherStatsHighCapacityEntry, 15, 9, pdu); },
       "1.3.6.1.2.1.16.1.7.1.15.9"},
      {[](Pdu& pdu) { return add_pdu_varbind(ifXEntry, 13, 9, pdu); }, "1.3.6.1.2.1.31.1.1.1.13.9"},
      {[](Pdu& pdu) { return add_pdu_varbind(ifEntry, 20, 9, pdu); }, "1.3.6.1.2.1.2.2.1.20.9"},
      {[](Pdu& pdu) { return add_pdu_varbind(smonVlanStatsControlEntry, 5, 9, pdu); },
       "1.3.6.1.2.1.16.22.1.2.1.1.5.9"},
      {[](Pdu& pdu) { return add_vlan_pdu_varbind(smonVlanIdStatsEntry, 13, 9, 4094, pdu); },
       "1.3.6.1.2.1.16.22.1.2.2.1.13.9.4094"},
  };
  for (const auto& test : cases) {
    const PduPtr pdu = new_pdu();
    ASSERT_EQ(test.add(*pdu), 0);
    ASSERT_NE(pdu->var_bind_list, nullptr);
    const VarBind& binding = *pdu->var_bind_list;
    EXPECT_EQ(dotted({binding.name->oid_ptr, static_cast<std::size_t>(binding.name->length)}),
              test.name);
    EXPECT_EQ(binding.type, NULL_TYPE);
  }
}

TEST(Bindings, PortDuplexTakesModuleAndPortFromTheName) {
  const struct {
    const char* name;
    const char* instance;  // null: refused
  } cases[] = {
      {"3/12", "3.12"},          {"Gi 1/1", "1.1"},
      {"13/48 up", "13.48"},     {"fe-2/5/7", "2.5"},
      {"01/002", "1.2"},         {"", nullptr},
      {"eth", nullptr},          {"3", nullptr},
      {"3/", nullptr},           {"/3", nullptr},
      {"3 /4", nullptr},         {"3/x4", nullptr},
      {"0/1", nullptr},          {"1/0", nullptr},
      {"14/1", nullptr},         {"1/49", nullptr},
      {"vlan1 2/3", nullptr},    {"4294967297/1", nullptr},
      {"1/4294967297", nullptr}, {"99999999999999", nullptr},
  };
  for (const auto& test : cases) {
    const PduPtr pdu = new_pdu();
    EXPECT_EQ(add_portduplex_varbind(test.name, *pdu), test.instance ? 0 : -1) << test.name;
    if (!test.instance) {
      EXPECT_EQ(pdu->var_bind_list, nullptr) << test.name;
      continue;
    }
    const OID& name = *pdu->var_bind_list->name;
    ASSERT_EQ(name.length, 15);
    EXPECT_EQ(dotted({name.oid_ptr + 13, 2}), test.instance) << test.name;
  }
}

TEST(Bindings, RowNamesAreAsLongAsTheTemplateAndBeginLikeIt) {
  using Sids = std::vector<std::uint32_t>;
  EXPECT_TRUE(names_a_row(ifOperStatus, Sids{1, 3, 6, 1, 2, 1, 2, 2, 1, 8, 99}));
  EXPECT_FALSE(names_a_row(ifOperStatus, Sids{1, 3, 6, 1, 2, 1, 2, 2, 1, 9, 99}));
  EXPECT_FALSE(names_a_row(ifOperStatus, Sids{1, 3, 6, 1, 2, 1, 2, 2, 1, 8}));
  EXPECT_FALSE(names_a_row(ifOperStatus, Sids{1, 3, 6, 1, 2, 1, 2, 2, 1, 8, 99, 0}));
  EXPECT_FALSE(names_a_row(ifOperStatus, Sids{}));
}

// A response with one binding of each stored kind.
PduPtr full_answer() {
  PduPtr pdu = new_pdu();
  const std::uint32_t sids[] = {1, 3, 6, 5};
  const OidPtr name(MakeOID(sids, 4));
  std::int32_t integer = -5;
  std::uint32_t gauge = 0xFFFFFFFF;
  LinkVarBind(pdu.get(), MakeVarBindWithValue(name.get(), nullptr, INTEGER_TYPE, &integer));
  LinkVarBind(pdu.get(), MakeVarBindWithValue(name.get(), nullptr, GAUGE_32_TYPE, &gauge));
  LinkVarBind(pdu.get(),
              MakeVarBindWithValue(name.get(), nullptr, COUNTER_64_TYPE, MakeCounter64(1, 2)));
  LinkVarBind(pdu.get(), MakeVarBindWithValue(
                             name.get(), nullptr, OCTET_STRING_TYPE,
                             MakeOctetString(reinterpret_cast<const unsigned char*>("a\0b"), 3)));
  LinkVarBind(pdu.get(),
              MakeVarBindWithValue(name.get(), nullptr, OBJECT_ID_TYPE, MakeOID(sids, 3)));
  return pdu;
}

std::string read_all(const Pdu& pdu) {
  AnswerReader answer(pdu);
  std::ostringstream text;
  text << answer.integer() << ' ';
  text << answer.unsigned32() << ' ';
  text << answer.counter64() << ' ';
  text << answer.octets().size() << ' ';
  text << answer.last_sub_id() << (answer.ok() ? "" : " failed");
  return text.str();
}

TEST(AnswerReader, ReadsUpToTheFirstUnusableBinding) {
  EXPECT_EQ(read_all(*full_answer()), "-5 4294967295 4294967298 3 6");
  EXPECT_EQ(read_all(*new_pdu()), "0 0 0 0 0 failed");
  const struct {
    std::int16_t type;
    bool usable;
  } seconds[] = {{COUNTER_32_TYPE, true},      {TIME_TICKS_TYPE, true},
                 {INTEGER_TYPE, false},        {NULL_TYPE, false},
                 {NO_SUCH_OBJECT_TYPE, false}, {NO_SUCH_INSTANCE_TYPE, false},
                 {END_OF_MIB_VIEW_TYPE, false}};
  for (const auto& second : seconds) {
    const PduPtr pdu = full_answer();
    pdu->var_bind_list->next_var->type = second.type;
    EXPECT_EQ(read_all(*pdu), second.usable ? "-5 4294967295 4294967298 3 6" : "-5 0 0 0 0 failed")
        << second.type;
  }
  const PduPtr hollow = full_answer();
  hollow->var_bind_end_ptr->value.oid_value->length = 0;
  EXPECT_EQ(read_all(*hollow), "-5 4294967295 4294967298 3 0 failed");
}

TEST(WalkRows, EndsWhereTheSupervisorDoesNotGoOn) {
  struct Row {
    std::uint32_t index;
  };
  const auto walk = [](const std::vector<std::uint32_t>& answers) {
    std::vector<std::uint32_t> visited;
    std::size_t asked = 0;
    walk_rows(
        [&](std::uint32_t after) -> std::optional<Row> {
          EXPECT_EQ(after, asked == 0 ? 0 : answers[asked - 1]);
          if (asked == answers.size()) return std::nullopt;
          return Row{answers[asked++]};
        },
        [&visited](const Row& row) { visited.push_back(row.index); });
    return visited.size();
  };
  EXPECT_EQ(walk({}), 0U);
  EXPECT_EQ(walk({0, 5}), 0U);
  EXPECT_EQ(walk({1, 7, 4294967295, 0}), 3U);
  EXPECT_EQ(walk({3, 3, 4}), 1U);
  EXPECT_EQ(walk({3, 9, 4}), 2U);
  std::uint32_t endless = 0;
  walk_rows([](std::uint32_t after) { return std::optional(Row{after + 1}); },
            [&endless](const Row&) { ++endless; });
  EXPECT_EQ(endless, kMostRows);
}

}  // namespace
}  // namespace tally
