// The shape that all questions to the supervisor share.
//
// A query is data (the kind of request and its four log texts) and two pieces of code: one appends
// the bindings that are asked for, the other reads them out of the response. The rest is the same
// for all: encode, ask, ask once more after a time-out, check the type and the error status of the
// answer.
#pragma once

#include <cstdint>
#include <string_view>

#include "snmp/free_lib.h"
#include "snmp/values.h"
#include "supervisor/bindings.h"

namespace tally {

struct Query {
  std::int16_t pdu_type;  // GET_REQUEST_PDU or GET_NEXT_REQUEST_PDU
  const char* build_failed;
  const char* request_failed;
  const char* unexpected_type;  // "%u": the type that came
  const char* error_status;     // "%u": the status that came
};

// begin_request returns the only request that there is, or null. It still has the bindings of the
// query before, which the builders reuse (bindings.h): a poll asks the same for row after row, and
// making the bindings anew would cost more than encoding them. ask encodes a request, sends it up
// to twice and returns a response without an error status, or null (logs, except when the second
// attempt times out or the process is about to end). Both are for run_query.
[[nodiscard]] Pdu* begin_request(const Query& query);
[[nodiscard]] PduPtr ask(const Query& query, Pdu& request);

// run_query asks for what `bind` appends: a callable that takes the request and returns whether it
// succeeded. Returns the response, or null.
template <class Bind>
[[nodiscard]] PduPtr run_query(const Query& query, Bind bind) {
  Pdu* const request = begin_request(query);
  return request && bind(*request) ? ask(query, *request) : nullptr;
}

// check_varbind_value returns 0 when a binding has a usable value; -1 when it is missing, NULL,
// noSuchObject, noSuchInstance or endOfMibView.
int check_varbind_value(const VarBind* binding);

// AnswerReader reads the bindings of a response in their order. When a binding is missing, has no
// usable value or is not stored the way it is read, this value and all later ones are zero or
// empty, and ok() is false. Views live as long as the response.
class AnswerReader {
 public:
  explicit AnswerReader(const Pdu& response) : next_(response.var_bind_list) {}

  std::uint32_t word();  // INTEGER, Counter32, Gauge32 or TimeTicks, whichever came
  std::uint64_t counter64();
  std::string_view octets();
  std::uint32_t last_sub_id();  // of a value that is an object identifier
  void skip();                  // the next binding, whatever it holds

  // name returns the name of the binding that is read next; empty when there is none.
  SubIds name() const;

  bool ok() const { return ok_; }

 private:
  const VarBind* take(ValueKind kind);

  const VarBind* next_;
  bool ok_ = true;
};

}  // namespace tally
