// The handlers of the control messages. They run on the main thread; nobody answers the sender,
// every error is only logged.
#pragma once

#include "daemon/control_pipe.h"
#include "daemon/registry.h"

namespace tally {

// handle_message does what a message asks for. False when it asks the daemon to end.
bool handle_message(Registry& registry, const ControlMessage& message);

// scan_control_tables adopts the collections that the agent's control rows ask for, over a
// connection of its own, and counts the rows of the supervisor kinds again.
void scan_control_tables(Registry& registry);

}  // namespace tally
