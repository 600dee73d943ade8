// The handlers of the control messages. They run on the main thread. The sender gets no answer;
// errors are only logged.
#pragma once

#include "daemon/control_pipe.h"
#include "daemon/registry.h"

namespace tally {

// handle_message carries out a message. False when it tells the daemon to end.
bool handle_message(Registry& registry, const ControlMessage& message);

// scan_control_tables adopts the collections that the agent's control rows ask for, over its own
// connection, and refreshes the rows of the supervisor kinds.
void scan_control_tables(Registry& registry);

}  // namespace tally
