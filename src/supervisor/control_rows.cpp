#include "supervisor/control_rows.h"

#include <algorithm>

#include "daemon/base/paths.h"

namespace tally {

std::optional<ControlRow> next_control_row(const ControlTable& table, std::uint32_t after) {
  const PduPtr response = run_query(table.query, [&](Pdu& request) {
    return std::all_of(table.columns.begin(), table.columns.end(), [&](std::uint32_t column) {
      return add_pdu_varbind(table.entry, column, after, request) == 0;
    });
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const SubIds name = answer.name();
  if (!names_a_row(table.entry, table.columns[0], name)) return ControlRow{};
  if (table.columns.size() == 4) (void)answer.word();  // the index, which the name tells, too
  const bool is_ours = answer.octets() == kRmonOwner;
  if (answer.ok() && !is_ours) return ControlRow{name.back(), false, 0};  // whatever else it says
  constexpr std::uint32_t kValid = 1;
  const bool is_valid = answer.word() == kValid;
  const ControlRow row{name.back(), is_valid, answer.last_sub_id()};
  return answer.ok() ? std::optional(row) : std::nullopt;
}

}  // namespace tally
