#include "supervisor/query.h"

#include <bit>

#include "daemon/base/log.h"
#include "snmp/bld_pkt.h"
#include "snmp/findlen.h"
#include "snmp/make_lib.h"
#include "supervisor/request.h"
#include "supervisor/supclient.h"

namespace tally {
namespace {

std::span<const std::uint32_t> sub_ids(const OID& oid) {
  return {oid.oid_ptr, static_cast<std::size_t>(oid.length)};
}

constexpr int base_128_bytes(std::uint32_t sub_id) {
  return (std::bit_width(sub_id | 1) + 6) / 7;
}

}  // namespace

// Request ids are seconds: a late answer to a request of the same second passes for one to this.
PduPtr make_request(const Query& query) {
  return PduPtr(MakePdu(query.pdu_type, MakeReqId(), 0, 0, nullptr, nullptr, 0, 0, 0));
}

PduPtr ask(const Query& query, Pdu& request) {
  if (BuildPdu(&request) != 0) {
    log_debug("%s", query.build_failed);
    return nullptr;
  }
  std::int32_t status = 0;
  PduPtr response = snmp_request(request, nmp_community, status);
  if (status == kRequestTimedOut) response = snmp_request(request, nmp_community, status);
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

void KeptRequest::renew() {
  request_->request_id = MakeReqId();
}

void KeptRequest::set_instance(VarBind& binding, std::uint32_t instance) {
  OID& name = *binding.name;
  std::uint32_t& last = name.oid_ptr[name.length - 1];
  if (last == instance) return;
  const bool as_long = base_128_bytes(last) == base_128_bytes(instance);
  last = instance;
  if (!as_long) binding.name_size = FindLenOID(&name);
}

void warn_of_endless_walk() {
  log_warning("A table of the supervisor has more than %u rows, ignoring the rest.", kMostRows);
}

int check_varbind_value(const VarBind* binding) {
  return binding && value_kind(binding->type) != ValueKind::empty ? 0 : -1;
}

const VarBind* AnswerReader::take(ValueKind kind) {
  const VarBind* const binding = next_;
  if (!ok_ || check_varbind_value(binding) != 0 || !binding->name ||
      value_kind(binding->type) != kind) {
    ok_ = false;
    name_ = {};
    return nullptr;
  }
  next_ = binding->next_var;
  name_ = sub_ids(*binding->name);
  return binding;
}

void AnswerReader::skip() {
  if (next_) next_ = next_->next_var;
}

std::int32_t AnswerReader::integer() {
  const VarBind* const binding = take(ValueKind::integer);
  return binding ? binding->value.sl_value : 0;
}

std::uint32_t AnswerReader::unsigned32() {
  const VarBind* const binding = take(ValueKind::unsigned32);
  return binding ? binding->value.ul_value : 0;
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
  if (!binding) return 0;
  const auto value = sub_ids(*binding->value.oid_value);
  if (!value.empty()) return value.back();
  ok_ = false;
  return 0;
}

}  // namespace tally
