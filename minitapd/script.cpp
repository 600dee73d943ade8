#include "minitapd/script.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "minitapd/json_reader.h"
#include "minitapd/procedures.h"

namespace minitapd {

namespace {

using nlohmann::json;

constexpr std::int64_t kIntMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kManyBytes = 1 << 30;

std::int32_t signed_word(JsonReader& in, std::string_view key, std::int32_t missing) {
  return static_cast<std::int32_t>(in.integer(key, kIntMin, kIntMax, missing));
}

std::int32_t control_index(JsonReader& in) {
  (void)in.require("index");
  return static_cast<std::int32_t>(in.word("index", 0));
}

// XDR carries texts as C strings, of at most 255 bytes.
std::string owner_text(JsonReader& in, std::string_view key, std::string_view missing) {
  std::string text = in.text(key, missing);
  if (text.size() > 255 || text.find('\0') != std::string::npos) {
    throw ScriptError(in.where(key) + ": wants at most 255 bytes without a zero");
  }
  return text;
}

ControlRow read_control_row(const json& object, const std::string& where) {
  JsonReader in(object, where);
  ControlRow row;
  row.index = control_index(in);
  row.owner = owner_text(in, "owner", "LocalMgr");
  row.status = signed_word(in, "status", 1);
  if (const json* fields = in.get("fields")) {
    std::size_t next = 0;
    for_each_element(*fields, in.where("fields"), [&](const json& value, const std::string& at) {
      if (next == row.fields.size()) throw ScriptError(at + ": too many fields");
      const json field = {{"value", value}};
      row.fields[next++] = JsonReader(field, at).word("value", 0);
    });
  }
  row.fields[0] = in.word("data_source", row.fields[0]);
  in.finish();
  return row;
}

Row read_row(Table table, const json& object, const std::string& where) {
  const TableShape& shape = shape_of(table);
  JsonReader in(object, where);
  Row row;
  row.control_index = control_index(in);
  for (std::size_t i = 0; i < shape.numbers.size(); ++i) {
    if (!shape.numbers[i].empty()) row.key.numbers[i] = in.word(shape.numbers[i], 0);
  }
  for (std::size_t i = 0; i < shape.addresses.size(); ++i) {
    if (!shape.addresses[i].empty()) row.key.addresses[i] = in.bytes(shape.addresses[i]);
  }
  normalize_key(table, row.key);
  const auto counters = in.counters("counters", shape.counters);
  std::ranges::copy(counters, row.counters.begin());
  if (!shape.detail.empty()) row.detail = in.word(shape.detail, 0);
  row.time_mark = in.word("time_mark", 0);
  row.row_status = signed_word(in, "status", 1);
  in.finish();
  return row;
}

void read_system(const json& object, Script& script) {
  JsonReader in(object, "system");
  script.system.descr = owner_text(in, "descr", "minitapd");
  script.has_up_time = in.get("up_time") != nullptr;
  script.system.up_time = in.word("up_time", 0);
  for (std::size_t i = 0; i < script.system.texts.size(); ++i) {
    script.system.texts[i] = owner_text(in, "text_" + std::to_string(i + 2), "");
  }
  script.system.services = signed_word(in, "services", 0);
  in.finish();
}

void read_totals(const json& array, Script& script) {
  for_each_element(array, "pdist_totals", [&](const json& object, const std::string& where) {
    JsonReader in(object, where);
    const std::int32_t index = control_index(in);
    Totals totals{.status = signed_word(in, "status", 0)};
    if (const auto counters = in.counters("counters", 2); !counters.empty()) {
      totals.pkts = counters[0];
      totals.octets = counters[1];
    }
    in.finish();
    script.pdist_totals.emplace_back(index, totals);
  });
}

void read_faults(const json& array, Script& script) {
  for_each_element(array, "faults", [&](const json& object, const std::string& where) {
    JsonReader in(object, where);
    Fault fault;
    (void)in.require("procedure");
    fault.procedure = in.word("procedure", 0);
    if (find_procedure(fault.procedure) == nullptr) {
      throw ScriptError(in.where("procedure") + ": no such procedure");
    }
    fault.call = static_cast<std::uint64_t>(in.integer("call", 0, kIntMax, 0));
    const std::string name = in.text("action", "");
    const auto action = fault_action(name);
    if (!action) throw ScriptError(in.where("action") + ": no such action: " + name);
    fault.action = *action;
    fault.bytes = static_cast<std::size_t>(in.integer("bytes", 0, kManyBytes, 0));
    fault.value = in.word("value", 0);
    fault.count = static_cast<std::size_t>(in.integer("count", 1, 1'000'000, 1));
    fault.data = in.bytes("hex");
    if (const json* seconds = in.get("seconds")) {
      const double value = seconds->is_number() ? seconds->get<double>() : -1;
      if (!(value >= 0 && value <= 86400)) {
        throw ScriptError(in.where("seconds") + ": wants a number, 0 to 86400");
      }
      fault.pause = std::chrono::milliseconds(std::llround(value * 1000));
    }
    if (fault.action == FaultAction::drip && fault.bytes == 0) {
      throw ScriptError(in.where("bytes") + ": a drip wants at least 1");
    }
    in.finish();
    script.faults.push_back(std::move(fault));
  });
}

template <class Entry, class Read>
ForcedReplies<Entry> read_forced(const json& calls, const std::string& where, Read read) {
  ForcedReplies<Entry> replies;
  for_each_element(calls, where, [&](const json& rows, const std::string& at) {
    auto& reply = replies.emplace_back();
    for_each_element(rows, at, [&](const json& row, const std::string& place) {
      reply.push_back(read(row, place));
    });
  });
  if (replies.empty()) throw ScriptError(where + ": wants at least one reply");
  return replies;
}

void read_replies(const json& object, Script& script) {
  JsonReader in(object, "replies");
  for (std::size_t i = 0; i < kTableCount; ++i) {
    const auto table = static_cast<Table>(i);
    const std::string rows = std::to_string(row_procedure(table));
    if (const json* calls = in.get(rows)) {
      script.row_replies[i] = read_forced<Row>(*calls, in.where(rows),
                                               [table](const json& row, const std::string& where) {
                                                 return read_row(table, row, where);
                                               });
    }
    if (!shape_of(table).has_control) continue;
    const std::string control = std::to_string(control_procedure(table));
    if (const json* calls = in.get(control)) {
      script.control_replies[i] =
          read_forced<ControlRow>(*calls, in.where(control), read_control_row);
    }
  }
  in.finish();
}

void read_tables(JsonReader& in, JsonReader& control, Script& script) {
  for (std::size_t i = 0; i < kTableCount; ++i) {
    const TableShape& shape = table_shapes()[i];
    if (const json* rows = in.get(shape.name)) {
      for_each_element(*rows, in.where(shape.name), [&](const json& row, const std::string& at) {
        script.rows[i].push_back(read_row(static_cast<Table>(i), row, at));
      });
    }
    if (!shape.has_control) continue;
    if (const json* rows = control.get(shape.name)) {
      for_each_element(*rows, control.where(shape.name),
                       [&](const json& row, const std::string& at) {
                         script.control[i].push_back(read_control_row(row, at));
                       });
    }
  }
}

}  // namespace

Script parse_script(const std::string& text) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& error) {
    throw ScriptError(error.what());
  }
  static const json empty = json::object();
  Script script;
  JsonReader in(root, "");
  const auto section = [&](std::string_view key) -> const json& {
    const json* member = in.get(key);
    return member != nullptr ? *member : empty;
  };
  read_system(section("system"), script);
  JsonReader control(section("control"), "control");
  read_tables(in, control, script);
  control.finish();
  if (const json* totals = in.get("pdist_totals")) read_totals(*totals, script);
  script.batch = static_cast<std::size_t>(in.integer("batch", 0, kMaxBatch, kMaxBatch));
  if (const json* faults = in.get("faults")) read_faults(*faults, script);
  read_replies(section("replies"), script);
  const std::string generation = std::to_string(in.integer("generation", 0, kIntMax, 0));
  in.finish();
  script.faults_text = generation + section("faults").dump();
  script.replies_text = generation + section("replies").dump();
  return script;
}

}  // namespace minitapd
