#include "daemon/messages.h"

#include "agent/rpc_client.h"
#include "agent/tapd_agent.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/base/stop.h"
#include "daemon/supervisor_kinds.h"
#include "files/file_format.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

void msg_terminate(Registry& registry) {
  stop();  // the poll task may be waiting for the agent with the registry locked
  registry.free_all();
  for (SupervisorKind& kind : supervisor_kinds()) kind.clean_up();
}

// The poll task is not woken, so a shorter interval takes effect after its current wait.
void msg_set_interval(Registry& registry, const ControlMessage& message) {
  auto interval = static_cast<std::int32_t>(message.collection_type);
  if (interval < kShortestInterval) {
    interval = kShortestInterval;
    log_warning("msg_set_interval() passed too small a value");
  } else if (interval > kLongestInterval) {
    interval = kLongestInterval;
    log_warning("msg_set_interval() passed too large a value");
  }
  registry.set_interval(interval);
  for (SupervisorKind& kind : supervisor_kinds()) apply_interval(kind.schedule, interval);
  registry.apply_interval();
}

void view_kind(SupervisorKind& kind, std::int32_t interval) {
  if (!kind.enabled) {
    log_debug("%s", kind.view_discarded_text);
    return;
  }
  const std::int32_t now = schedule_seconds();
  note_viewing(kind.schedule, now, interval);
  if (kind.schedule.next_due > now && delta_file_exists(kind.type, 0)) return;
  const std::int32_t previous_poll = kind.schedule.last_poll;
  kind.schedule.next_due = seconds_after(now, interval);
  kind.schedule.last_poll = now;
  kind.refresh_rows();
  kind.poll(now, previous_poll);
}

void view_collection(Registry& registry, std::uint32_t type, std::uint32_t index) {
  {
    RegistryLock lock(registry);
    CollectionRecord* record = registry.find(lock, type, index);
    if (!record) {
      log_warning(
          "Received TALLYD_VIEWING_COLL message for non-existent collection type %u, index %u",
          type, index);
      return;
    }
    lock.retake();
    const std::int32_t now = schedule_seconds();
    note_viewing(record->schedule, now, registry.interval());
    if (!delta_file_exists(type, index)) record->schedule.next_due = now;
    registry.insert_in_order(registry.unlink(*record));
  }
  registry.wake_poll_task();
}

void msg_viewing_coll(Registry& registry, const ControlMessage& message) {
  const std::uint32_t type = message.collection_type;
  if (is_supervisor_type(type)) {
    view_kind(supervisor_kind(type), registry.interval());
  } else if (type == kDsMatrix) {
    log_debug("Tallyd was notified of user viewing DSMATRIX collection.");
  } else if (is_agent_type(type)) {
    view_collection(registry, type, message.collection_index);
  } else {
    log_warning("Illegal collection type in TALLYD_VIEWING_COLL message.");
  }
}

void create_kind(SupervisorKind& kind) {
  if (kind.enabled) return;
  kind.enabled = true;
  log_debug("%s", kind.enabled_text);
  kind.initialise();
  kind.refresh_rows();
  kind.poll_at_once();
}

// A collection that already exists starts over with an empty history.
void create_collection(Registry& registry, std::uint32_t type, std::uint32_t index) {
  {
    RegistryLock lock(registry);
    CollectionRecord* record = registry.find(lock, type, index);
    if (!record) record = registry.new_collection(type, index);
    if (!record) {
      log_warning("msg_create_coll(): Unable to create new collection.");
      return;
    }
    lock.retake();
    remove_collection_files(type, index);
    record->schedule.last_poll = 0;
    record->schedule.next_due = schedule_seconds();
  }
  registry.re_sort();
  registry.wake_poll_task();
}

void msg_create_coll(Registry& registry, const ControlMessage& message) {
  const std::uint32_t type = message.collection_type;
  if (is_supervisor_type(type)) {
    create_kind(supervisor_kind(type));
  } else if (type == kDsMatrix) {
    log_debug("Tallyd was notified to create a DSMATRIX collection.");
  } else if (is_agent_type(type)) {
    create_collection(registry, type, message.collection_index);
  } else {
    log_warning("Illegal collection type in TALLYD_CREATE_COLL message.");
  }
}

void destroy_kind(SupervisorKind& kind) {
  if (!kind.enabled) return;
  kind.enabled = false;
  log_debug("%s", kind.disabled_text);
  kind.clean_up();
  remove_collection_files(kind.type, 0);
}

// Unlike create and viewing, destroy looks up dsmatrix like any other agent type.
void destroy_collection(Registry& registry, std::uint32_t type, std::uint32_t index) {
  RegistryLock lock(registry);
  CollectionRecord* record = registry.find(lock, type, index);
  if (!record) {
    log_warning(
        "Received TALLYD_DESTROY_COLL message for non-existent collection type %u, index %u", type,
        index);
    return;
  }
  lock.retake();
  remove_collection_files(type, index);
  (void)registry.unlink(*record);  // which frees it
}

void msg_destroy_coll(Registry& registry, const ControlMessage& message) {
  const std::uint32_t type = message.collection_type;
  if (is_supervisor_type(type)) {
    destroy_kind(supervisor_kind(type));
  } else if (is_agent_type(type)) {
    destroy_collection(registry, type, message.collection_index);
  } else {
    log_warning("Illegal collection type in TALLYD_DESTROY_COLL message.");
  }
}

}  // namespace

void scan_control_tables(Registry& registry) {
  const auto client = agent_connect(kAgentHost);
  if (!client) {
    log_debug("Error 1 scanning control tables.");
    return;
  }
  for (std::uint32_t type = kHost; type <= kDsMatrix; ++type) {
    if (const auto add_active = agent_type_ops(type).add_active) add_active(*client, registry);
  }
  for (SupervisorKind& kind : supervisor_kinds()) {
    if (kind.enabled) kind.refresh_rows();
  }
}

bool handle_message(Registry& registry, const ControlMessage& message) {
  switch (static_cast<MessageType>(message.type)) {
    case MessageType::terminate:
      msg_terminate(registry);
      return false;
    case MessageType::set_interval:
      msg_set_interval(registry, message);
      break;
    case MessageType::viewing:
      msg_viewing_coll(registry, message);
      break;
    case MessageType::create:
      msg_create_coll(registry, message);
      break;
    case MessageType::destroy:
      msg_destroy_coll(registry, message);
      break;
    case MessageType::reload_settings:
      (void)reload_supervisor_settings();  // has logged; the next message tries again
      break;
    case MessageType::rescan:
      scan_control_tables(registry);
      break;
    case MessageType::none:
      break;
  }
  return true;
}

}  // namespace tally
