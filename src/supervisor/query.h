// The shape that every question to the supervisor has.
//
// A query is data (the kind of request and its four log texts) and two pieces of code: one appends
// the bindings that are asked for, the other reads them out of the response. Everything between is
// the same for all: encode, ask, ask once more after a time-out, check the type and the error
// status of what came.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "snmp/free_lib.h"
#include "snmp/values.h"

namespace tally {

struct Query {
  std::int16_t pdu_type;  // GET_REQUEST_PDU or GET_NEXT_REQUEST_PDU
  const char* build_failed;
  const char* request_failed;
  const char* unexpected_type;  // "%u": the type that came
  const char* error_status;     // "%u": the status that came
};

// make_request returns a request without bindings, or null. ask encodes a request, sends it up to
// twice and returns a response without an error status, or null (logs, but not a second time-out).
// Both are for run_query.
[[nodiscard]] PduPtr make_request(const Query& query);
[[nodiscard]] PduPtr ask(const Query& query, Pdu& request);

// run_query asks for what `bind` appends: a callable that takes the request and returns whether all
// went well. Returns the response, or null.
template <class Bind>
[[nodiscard]] PduPtr run_query(const Query& query, Bind bind) {
  const PduPtr request = make_request(query);
  if (!request || !bind(*request)) return nullptr;
  return ask(query, *request);
}

// KeptRequest is the request of a query that is put to one row after the other: its bindings stay
// and only their instances change. To make them anew costs more than to encode them.
class KeptRequest {
 public:
  explicit KeptRequest(const Query& query) : query_(query) {}

  // run asks as run_query does. `bind` appends the bindings, once; `instance` takes the number of a
  // binding, from 0 on, and returns the last number of its name.
  template <class Bind, class Instance>
  [[nodiscard]] PduPtr run(Bind bind, Instance instance) {
    if (request_) {
      renew();
      std::size_t number = 0;
      for (VarBind* each = request_->var_bind_list; each; each = each->next_var) {
        set_instance(*each, instance(number++));
      }
    } else {
      PduPtr request = make_request(query_);
      if (!request || !bind(*request)) return nullptr;
      request_ = std::move(request);
    }
    return ask(query_, *request_);
  }

 private:
  void renew();
  static void set_instance(VarBind& binding, std::uint32_t instance);

  const Query& query_;
  PduPtr request_;
};

// No table of a supervisor has more rows than this. A walk that finds more is broken off (logs), so
// that no supervisor, however broken, holds the main thread for ever.
inline constexpr std::uint32_t kMostRows = 65536;
void warn_of_endless_walk();

// walk_rows asks for one row after the other, from index 0 on, and calls `visit` with each. `next`
// takes an index and returns the row behind it: an optional with a member `index`, nothing when the
// query failed. That, and a row whose index is not greater than the one asked after (0 stands for
// none), ends the walk.
template <class Next, class Visit>
void walk_rows(Next next, Visit visit) {
  std::uint32_t index = 0;
  for (std::uint32_t rows = 0; rows < kMostRows; ++rows) {
    const auto row = next(index);
    if (!row || row->index <= index) return;
    index = row->index;
    visit(*row);
  }
  warn_of_endless_walk();
}

// check_varbind_value returns 0 when a binding carries a usable value; -1 when it is missing, NULL,
// noSuchObject, noSuchInstance or endOfMibView.
int check_varbind_value(const VarBind* binding);

// AnswerReader reads the bindings of a response in their order. A binding that is missing, carries
// no usable value or one that is stored otherwise than what is read (Counter32, Gauge32 and
// TimeTicks are stored alike) makes it, and everything read after it, zero or empty, and ok()
// false. What it returns by view lives as long as the response.
class AnswerReader {
 public:
  explicit AnswerReader(const Pdu& response) : next_(response.var_bind_list) {}

  std::int32_t integer();
  std::uint32_t unsigned32();
  std::uint64_t counter64();
  std::string_view octets();
  std::uint32_t last_sub_id();  // of a value that is an object identifier
  void skip();                  // the next binding, whatever it carries

  // name returns the name of the binding that was read last.
  std::span<const std::uint32_t> name() const { return name_; }

  bool ok() const { return ok_; }

 private:
  const VarBind* take(ValueKind kind);

  const VarBind* next_;
  std::span<const std::uint32_t> name_;
  bool ok_ = true;
};

}  // namespace tally
