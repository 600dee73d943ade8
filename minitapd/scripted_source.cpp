#include "minitapd/scripted_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <numeric>
#include <tuple>
#include <utility>

namespace minitapd {

namespace {

std::size_t slot(Table table) {
  return static_cast<std::size_t>(table);
}

// The reply that a script dictates for this call; the last one repeats.
template <class Entry>
const std::vector<Entry>& forced_reply(const ForcedReplies<Entry>& replies, std::size_t& calls) {
  const std::size_t call = std::min(calls, replies.size() - 1);
  ++calls;
  return replies[call];
}

}  // namespace

ScriptedSource::ScriptedSource(std::string path) : path_(std::move(path)) {
  loaded_ = stamp();
  load();
}

ScriptedSource::FileStamp ScriptedSource::stamp() const {
  struct stat info {};
  if (::stat(path_.c_str(), &info) != 0) return {};
  return {info.st_size, info.st_ino, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

void ScriptedSource::load() {
  std::ifstream file(path_, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) throw ScriptError(path_ + ": cannot be read");
  Script script;
  try {
    script = parse_script(text);
  } catch (const ScriptError& error) {
    throw ScriptError(path_ + ": " + error.what());
  }
  if (script.faults_text != script_.faults_text) fault_calls_.clear();
  if (script.replies_text != script_.replies_text) {
    row_calls_.fill(0);
    control_calls_.fill(0);
  }
  script_ = std::move(script);
  for (std::size_t i = 0; i < kTableCount; ++i) {
    const auto& rows = script_.rows[i];
    by_key_[i].resize(rows.size());
    std::iota(by_key_[i].begin(), by_key_[i].end(), 0U);
    std::ranges::stable_sort(by_key_[i], {}, [&rows](std::uint32_t position) {
      return std::tie(rows[position].control_index, rows[position].key);
    });
  }
}

void ScriptedSource::refresh() {
  const FileStamp now = stamp();
  if (now == loaded_) return;
  loaded_ = now;
  try {
    load();
  } catch (const ScriptError& error) {
    (void)std::fprintf(stderr, "minitapd: %s\n", error.what());
  }
}

const Fault* ScriptedSource::next_fault(std::uint32_t procedure) {
  const std::uint64_t call = ++fault_calls_[procedure];
  const auto it = std::ranges::find_if(script_.faults, [&](const Fault& fault) {
    return fault.procedure == procedure && (fault.call == 0 || fault.call == call);
  });
  return it == script_.faults.end() ? nullptr : &*it;
}

SystemInfo ScriptedSource::system_info() {
  SystemInfo info = script_.system;
  if (!script_.has_up_time) info.up_time = hundredths_since(started_);
  return info;
}

const ControlRow* ScriptedSource::control_row(Table table, std::int32_t index, bool next) {
  if (const auto& forced = script_.control_replies[slot(table)]) {
    const auto& rows = forced_reply(*forced, control_calls_[slot(table)]);
    return rows.empty() ? nullptr : &rows.front();
  }
  const auto& rows = script_.control[slot(table)];
  auto it = rows.begin();
  if (!next) {
    it = std::ranges::find(rows, index, &ControlRow::index);
  } else if (index != 0) {
    const auto equal = std::ranges::find(rows.rbegin(), rows.rend(), index, &ControlRow::index);
    it = equal != rows.rend()
             ? equal.base()
             : std::ranges::find_if(rows, [index](const auto& row) { return row.index > index; });
  }
  return it == rows.end() ? nullptr : &*it;
}

std::size_t ScriptedSource::start_position(Table table, std::int32_t control_index,
                                           const Key& start) const {
  const auto& rows = script_.rows[slot(table)];
  const auto position_of = [&rows](auto predicate) {
    return static_cast<std::size_t>(std::ranges::find_if(rows, predicate) - rows.begin());
  };
  if (shape_of(table).bulk && start == Key{}) {
    return position_of([&](const Row& row) { return row.control_index == control_index; });
  }
  const auto& order = by_key_[slot(table)];
  const auto behind = std::ranges::upper_bound(
      order, std::tie(control_index, start), {}, [&rows](std::uint32_t position) {
        return std::tie(rows[position].control_index, rows[position].key);
      });
  if (behind != order.begin()) {
    const std::size_t last = *std::prev(behind);
    if (rows[last].control_index == control_index && rows[last].key == start) return last + 1;
  }
  return position_of(
      [&](const Row& row) { return row.control_index == control_index && row.key > start; });
}

void ScriptedSource::rows_after(Table table, std::int32_t control_index, const Key& start,
                                std::size_t limit, std::vector<Row>& out) {
  if (const auto& forced = script_.row_replies[slot(table)]) {
    const auto& reply = forced_reply(*forced, row_calls_[slot(table)]);
    out.insert(out.end(), reply.begin(), reply.end());
    return;
  }
  const auto& rows = script_.rows[slot(table)];
  const std::size_t first = start_position(table, control_index, start);
  // The batch bound is one of the bulk procedures.
  const std::size_t most = shape_of(table).bulk ? std::min(limit, script_.batch) : limit;
  const std::size_t count = std::min(most, rows.size() - first);
  const auto begin = rows.begin() + static_cast<std::ptrdiff_t>(first);
  out.insert(out.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
}

std::optional<Row> ScriptedSource::row_at(Table table, std::int32_t control_index, const Key& key) {
  if (const auto& forced = script_.row_replies[slot(table)]) {
    const auto& reply = forced_reply(*forced, row_calls_[slot(table)]);
    return reply.empty() ? std::nullopt : std::optional(reply.front());
  }
  const auto& rows = script_.rows[slot(table)];
  const auto it = std::ranges::find_if(
      rows, [&](const Row& row) { return row.control_index == control_index && row.key == key; });
  return it == rows.end() ? std::nullopt : std::optional(*it);
}

Totals ScriptedSource::pdist_totals(std::int32_t control_index) {
  for (const auto& [index, totals] : script_.pdist_totals) {
    if (index == control_index) return totals;
  }
  return {};
}

}  // namespace minitapd
