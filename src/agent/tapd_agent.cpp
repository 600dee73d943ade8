#include "agent/tapd_agent.h"

#include "agent/procedures.h"
#include "agent/records.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/base/stop.h"

namespace tally {

const CollectionOps& agent_type_ops(std::uint32_t type) {
  static constexpr CollectionOps kNone;
  static const CollectionOps* const kTypes[kTypeSlots] = {
      &host_ops, &matrix_ops,  &pdist_ops,   &nlhost_ops, &nlmatrix_ops, &vlan_ops,
      &prio_ops, &dsstats_ops, &dspdist_ops, &dshost_ops, &dsmatrix_ops};
  return kTypes[type] ? *kTypes[type] : kNone;
}

bool TapdAgent::connect() {
  client_.reset();  // closes the dead connection
  client_ = agent_connect(kAgentHost);
  return client_ != nullptr;
}

bool TapdAgent::check_connection() {
  if (client_ && agent_null(*client_, {})) return true;
  if (stopping()) return false;  // the call was not made
  log_debug("RPC connection died, reopening!");
  return connect();
}

std::uint32_t TapdAgent::up_time() {
  const auto info = agent_system_info(*client_, {});
  return info ? info->up_time : 0;
}

}  // namespace tally
