// Scripted tables: a JSON file that says what the agent serves and how it misbehaves. The format
// is described in docs/minitapd-script.md.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "minitapd/reply_fault.h"
#include "minitapd/tables.h"

namespace minitapd {

// Names the place in the script, as in "host[3].counters: wants 7 numbers".
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Replies that a script dictates for the first, second, ... call of a procedure; the last repeats.
template <class Entry>
using ForcedReplies = std::vector<std::vector<Entry>>;

struct Script {
  SystemInfo system;
  bool has_up_time = false;  // else the agent's real one is told
  std::array<std::vector<ControlRow>, kTableCount> control;
  std::array<std::vector<Row>, kTableCount> rows;  // in file order
  std::vector<std::pair<std::int32_t, Totals>> pdist_totals;
  std::size_t batch = kMaxBatch;
  std::vector<Fault> faults;
  std::array<std::optional<ForcedReplies<Row>>, kTableCount> row_replies;
  std::array<std::optional<ForcedReplies<ControlRow>>, kTableCount> control_replies;
  std::string faults_text;   // the two sections and the generation as text: calls are counted
  std::string replies_text;  // afresh when it changes
};

// parse_script reads a script. Throws ScriptError, also for keys that it does not know.
Script parse_script(const std::string& text);

}  // namespace minitapd
