// The main loop: serve the control pipe, and poll the supervisor kinds when they are due.
#pragma once

#include "daemon/control_pipe.h"
#include "daemon/registry.h"

namespace tally {

// run_main_loop returns the exit status: 0 after a terminate message, -1 when the pipe is lost.
int run_main_loop(ControlPipe& pipe, Registry& registry);

}  // namespace tally
