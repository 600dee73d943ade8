// The scan of the agent's control tables: which collections do this system's users already have?
#pragma once

#include <cstdint>

#include "agent/procedures.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "files/collection_ops.h"

namespace tally {

// Row status of a control row that is in force (RFC 2819, EntryStatus).
inline constexpr std::int32_t kRowValid = 1;

// A control table has no more rows: RMON numbers them from 1 to 65535. An agent that goes round
// in circles ends here.
inline constexpr int kMostControlRows = 65535;

// valid_and_ours is the rule by which most types adopt a control row. The owner must match to the
// byte and in its length.
bool valid_and_ours(const auto& row) {
  return row.row_status == kRowValid && row.owner.view() == kOwner;
}

// for_each_control_row reads a control table, at most so many rows. It ends at the first call that
// fails or returns no entry.
template <class Procedure, class Visit>
void for_each_control_row(const Procedure& procedure, AgentClient& client, int most, Visit visit) {
  ControlKey key;
  for (int rows = 0; rows < most; ++rows) {
    const auto row = procedure(client, key);
    // The very row that was asked after ends the table, too.
    if (!row || row->status != 0 || row->index == key.index) return;
    key.index = row->index;
    visit(*row);
  }
}

// scan_control_rows hands every control row that Type::adopts, or else valid_and_ours, to the
// adopter. What was adopted before the scan ends stays.
template <class Type>
void scan_control_rows(AgentClient& client, Adopter& adopter) {
  for_each_control_row(Type::kControlProcedure, client, kMostControlRows, [&](const auto& row) {
    bool adopted = false;
    if constexpr (requires { Type::adopts(row); }) {
      adopted = Type::adopts(row);
    } else {
      adopted = valid_and_ours(row);
    }
    if (adopted && !adopter.adopt(Type::kType, static_cast<std::uint32_t>(row.index))) {
      log_warning("%s", Type::kTexts.add_failed);
    }
  });
}

}  // namespace tally
