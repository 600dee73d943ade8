#include "daemon/main_loop.h"

#include "daemon/base/clock.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "daemon/messages.h"
#include "daemon/supervisor_kinds.h"

namespace tally {

int run_main_loop(ControlPipe& pipe, Registry& registry) {
  for (;;) {
    const auto timeout = next_timeout(supervisor_kinds(), schedule_seconds());
    const int ready = pipe.wait(stopping() ? 0 : timeout.value_or(-1));
    if (ready < 0) continue;         // an interrupted wait is not fatal
    if (ready == 0 && stopping()) {  // somebody else has read the terminate message that was seen
      handle_message(registry, {static_cast<std::uint32_t>(MessageType::terminate), 0, 0});
      return 0;
    }
    if (ready == 0) {
      poll_due_kinds(supervisor_kinds(), schedule_seconds(), registry.interval());
      continue;
    }
    ControlMessage message;
    switch (pipe.read(message)) {
      case ControlPipe::Read::closed:
        return -1;
      case ControlPipe::Read::skipped:
        continue;
      case ControlPipe::Read::message:
        break;
    }
    if (message.type > kLastMessageType) {
      log_debug("Unexpected message type found in pipe.");
      continue;
    }
    if (!handle_message(registry, message)) return 0;
  }
}

}  // namespace tally
