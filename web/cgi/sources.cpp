#include <nlohmann/json.hpp>

#include "agent/control_scan.h"
#include "agent/procedures.h"
#include "answers.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/base/settings.h"
#include "records/cell_text.h"

namespace tally::cgi {
namespace {

using Json = nlohmann::json;

constexpr int kMostRows = 256;

template <const auto& kProcedure>
Json rows_of(AgentClient& client) {
  Json rows = Json::array();
  for_each_control_row(kProcedure, client, kMostRows, [&](const auto& row) {
    if (row.row_status != kRowValid) return;
    rows.push_back(
        {{"index", static_cast<std::uint32_t>(row.index)}, {"owner", printable(row.owner.view())}});
  });
  return rows;
}

struct ControlTable {
  std::uint32_t type;
  Json (*rows)(AgentClient& client);
};
constexpr ControlTable kTables[] = {
    {kHost, rows_of<host_control_getnext>},         {kMatrix, rows_of<matrix_control_getnext>},
    {kPdist, rows_of<pdist_control_getnext>},       {kNlHost, rows_of<nlhost_control_getnext>},
    {kNlMatrix, rows_of<nlmatrix_control_getnext>}, {kVlan, rows_of<vlan_control_getnext>},
    {kPrio, rows_of<prio_control_getnext>},         {kDsStats, rows_of<dsstats_control_getnext>},
    {kDsPdist, rows_of<dspdist_control_getnext>},   {kDsHost, rows_of<dshost_control_getnext>}};

Json agent_rows() {
  const auto client = agent_connect(kAgentHost);
  if (!client || !agent_null(*client, {})) return nullptr;
  Json all = Json::object();
  for (const ControlTable& table : kTables) all[type_stem(table.type)] = table.rows(*client);
  return all;
}

}  // namespace

Json answer_to(const SourcesRequest& /*request*/) {
  const SupervisorSettings settings =
      read_supervisor_settings(kNmpSettings, read_target_id(kApplianceSettings));
  Json disabled = Json::array();
  for (const KindSetting& kind : settings.kinds) {
    if (settings.state == DatabaseState::good && kind.disabled()) {
      disabled.push_back(type_stem(kind.type));
    }
  }
  return {{"agent", agent_rows()}, {"disabled", std::move(disabled)}};
}

}  // namespace tally::cgi
