// The poll task's connection to the agent, and the table of operations of all agent types.
#pragma once

#include <memory>

#include "agent/rpc_client.h"
#include "files/collection_ops.h"

namespace tally {

// agent_type_ops returns the operations of a type below kTypeSlots; those of a type that has none
// are all null.
const CollectionOps& agent_type_ops(std::uint32_t type);

// TapdAgent connects to the agent of the appliance.
class TapdAgent final : public Agent {
 public:
  bool connect() override;
  bool check_connection() override;
  std::uint32_t up_time() override;
  AgentClient& client() override { return *client_; }
  const CollectionOps& ops(std::uint32_t type) const override { return agent_type_ops(type); }

 private:
  std::unique_ptr<AgentClient> client_;
};

}  // namespace tally
