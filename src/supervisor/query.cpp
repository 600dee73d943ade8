#include "supervisor/query.h"

#include <utility>

#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "snmp/bld_pkt.h"
#include "snmp/make_lib.h"
#include "supervisor/request.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

constexpr int kTries = 2;

SubIds sub_ids(const OID& oid) {
  return {oid.oid_ptr, static_cast<std::size_t>(oid.length)};
}

// INTEGER and the unsigned types are all one word; only the sign differs.
ValueKind stored_as(std::int16_t type) {
  const ValueKind kind = value_kind(type);
  return kind == ValueKind::integer ? ValueKind::unsigned32 : kind;
}

}  // namespace

// Request ids are seconds, so a late answer to another request of the same second is taken for the
// answer to this one.
Pdu* begin_request(const Query& query) {
  static PduPtr request;
  if (!request) request.reset(MakePdu(query.pdu_type, 0, 0, 0, nullptr, nullptr, 0, 0, 0));
  if (!request) return nullptr;
  request->type = query.pdu_type;
  request->request_id = MakeReqId();
  request->var_bind_end_ptr = nullptr;
  return request.get();
}

PduPtr ask(const Query& query, Pdu& request) {
  FreeVarBindList(std::exchange(request.var_bind_end_ptr->next_var, nullptr));
  if (BuildPdu(&request) != 0) {
    log_debug("%s", query.build_failed);
    return nullptr;
  }
  PduPtr response;
  std::int32_t status = kRequestTimedOut;
  for (int tried = 0; tried < kTries && status == kRequestTimedOut; ++tried) {
    if (stopping()) return nullptr;
    response = snmp_request(request, nmp_community, status);
  }
  if (status == kRequestFailed) log_debug("%s", query.request_failed);
  if (!response) return nullptr;
  if (response->type != RESPONSE_PDU) {
    log_debug(query.unexpected_type, static_cast<unsigned>(response->type));
    return nullptr;
  }
  if (response->error_status != 0) {
    log_debug(query.error_status, static_cast<unsigned>(response->error_status));
    return nullptr;
  }
  return response;
}

int check_varbind_value(const VarBind* binding) {
  return binding && value_kind(binding->type) != ValueKind::empty ? 0 : -1;
}

const VarBind* AnswerReader::take(ValueKind kind) {
  ok_ = ok_ && check_varbind_value(next_) == 0 && stored_as(next_->type) == kind;
  return ok_ ? std::exchange(next_, next_->next_var) : nullptr;
}

void AnswerReader::skip() {
  if (next_) next_ = next_->next_var;
}

SubIds AnswerReader::name() const {
  return next_ ? sub_ids(*next_->name) : SubIds{};
}

std::uint32_t AnswerReader::word() {
  const VarBind* const binding = take(ValueKind::unsigned32);
  if (!binding) return 0;
  return binding->type == INTEGER_TYPE ? static_cast<std::uint32_t>(binding->value.sl_value)
                                       : binding->value.ul_value;
}

std::uint64_t AnswerReader::counter64() {
  const VarBind* const binding = take(ValueKind::unsigned64);
  return binding ? as_number(*binding->value.uint64_value) : 0;
}

std::string_view AnswerReader::octets() {
  const VarBind* const binding = take(ValueKind::octets);
  if (!binding) return {};
  const OctetString& string = *binding->value.os_value;
  return {reinterpret_cast<const char*>(string.octet_ptr), static_cast<std::size_t>(string.length)};
}

std::uint32_t AnswerReader::last_sub_id() {
  const VarBind* const binding = take(ValueKind::oid);
  return binding ? sub_ids(*binding->value.oid_value).back() : 0;  // none is decoded as empty
}

}  // namespace tally
