// The scan of the agent's control tables: which collections do this system's users already have?
#pragma once

#include <cstdint>
#include <string_view>

#include "agent/procedures.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "files/collection_ops.h"

namespace tally {

// Request kinds of the control procedures and of those that return one row a call.
inline constexpr std::int32_t kExactRow = 1;  // the row with just this key
inline constexpr std::int32_t kNextRow = 2;   // the row behind this key

// Row status of a control row that is in force (RFC 2819, EntryStatus).
inline constexpr std::int32_t kRowValid = 1;

// A control table has no more rows: RMON numbers them from 1 to 65535. An agent that goes round
// in circles ends here.
inline constexpr int kMostControlRows = 65535;

// ControlEntry is what matters of a control row. The owner lives as long as the reply.
struct ControlEntry {
  std::int32_t index;
  std::string_view owner;
  std::int32_t row_status;
};

// valid_and_ours is the rule by which most types adopt a control row. The owner must match to the
// byte and in its length.
inline bool valid_and_ours(const ControlEntry& entry) {
  return entry.row_status == kRowValid && entry.owner == kOwner;
}

// scan_control_rows hands every control row that Type::adopts to the adopter. The scan ends at the
// first call that fails or returns no entry; what was adopted stays.
template <class Type>
void scan_control_rows(AgentClient& client, Adopter& adopter) {
  ControlKey key{0, kNextRow};
  for (int rows = 0; rows < kMostControlRows; ++rows) {
    const auto reply = Type::kControlProcedure(client, key);
    if (!reply || reply->status != 0) return;
    const ControlEntry entry = Type::control_entry(*reply);
    if (entry.index == key.index) return;  // the very row that was asked after
    if (Type::adopts(entry) &&
        !adopter.adopt(Type::kType, static_cast<std::uint32_t>(entry.index))) {
      log_warning("%s", Type::kTexts.add_failed);
    }
    key.index = entry.index;
  }
}

}  // namespace tally
