// The table of procedures against the stubs that rpcgen makes.
#include "agent/procedures.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <type_traits>

#include "support/wire_peers.h"

namespace tally {
namespace {

struct Stub {
  std::uint32_t number;
  bool same_types;
};

template <auto kStub, class Procedure>
constexpr Stub stub(const Procedure&, std::uint32_t number) {
  using Argument = typename Peer<typename Procedure::Argument>::Type;
  using Result = typename Peer<typename Procedure::Result>::Type;
  return {number, std::is_same_v<decltype(kStub), clnt_stat (*)(Argument*, Result*, CLIENT*)>};
}

TEST(Procedures, AreThoseOfTheProgram) {
#define STUB(name, NUMBER) \
  { #name, stub < name##_1>(name, NUMBER) }
  const std::map<std::string, Stub> stubs = {
      STUB(agent_null, AGENT_NULL),
      STUB(agent_system_info, AGENT_SYSTEM_INFO),
      STUB(host_control_getnext, HOST_CONTROL_GETNEXT),
      STUB(host_table_get, HOST_TABLE_GET),
      STUB(matrix_control_getnext, MATRIX_CONTROL_GETNEXT),
      STUB(matrix_table_get, MATRIX_TABLE_GET),
      STUB(pdist_control_getnext, PDIST_CONTROL_GETNEXT),
      STUB(pdist_table_get, PDIST_TABLE_GET),
      STUB(pdist_source_totals_get, PDIST_SOURCE_TOTALS_GET),
      STUB(nlhost_control_getnext, NLHOST_CONTROL_GETNEXT),
      STUB(nlhost_table_get, NLHOST_TABLE_GET),
      STUB(nlmatrix_control_getnext, NLMATRIX_CONTROL_GETNEXT),
      STUB(nlmatrix_table_get, NLMATRIX_TABLE_GET),
      STUB(vlan_control_getnext, VLAN_CONTROL_GETNEXT),
      STUB(vlan_table_get, VLAN_TABLE_GET),
      STUB(prio_control_getnext, PRIO_CONTROL_GETNEXT),
      STUB(prio_table_get, PRIO_TABLE_GET),
      STUB(dsstats_control_getnext, DSSTATS_CONTROL_GETNEXT),
      STUB(dsstats_table_get, DSSTATS_TABLE_GET),
      STUB(dspdist_control_getnext, DSPDIST_CONTROL_GETNEXT),
      STUB(dspdist_table_get, DSPDIST_TABLE_GET),
      STUB(dshost_control_getnext, DSHOST_CONTROL_GETNEXT),
      STUB(dshost_table_get, DSHOST_TABLE_GET),
      STUB(dsmatrix_table_get, DSMATRIX_TABLE_GET),
  };
#undef STUB
  std::set<std::string> names;
  std::set<std::uint32_t> numbers;
  for_each_procedure([&](const auto& procedure) {
    SCOPED_TRACE(procedure.name);
    names.insert(procedure.name);
    numbers.insert(procedure.number);
    const auto found = stubs.find(procedure.name);
    ASSERT_NE(found, stubs.end());
    EXPECT_EQ(procedure.number, found->second.number);
    EXPECT_TRUE(found->second.same_types);
  });
  EXPECT_EQ(names.size(), 24U);
  EXPECT_EQ(numbers.size(), 24U);
  EXPECT_EQ(AGENT_PROGRAM, rpcprog_t{TAPD_PROGRAM});
  EXPECT_EQ(AGENT_VERSION, rpcvers_t{TAPD_VERSION});
}

}  // namespace
}  // namespace tally
