#include "supervisor/bindings.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <utility>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {
namespace {

static_assert(std::size(kPortDuplexColumn) == 13, "TALLYD_PORT_TABLE_OID needs 13 numbers");
constexpr std::uint32_t kMostModules = 13;
constexpr std::uint32_t kMostPorts = 48;

// Takes a decimal number off the front. Nothing when there is none or it needs more than 32 bits.
std::optional<std::uint32_t> take_number(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// Gives a binding of this object new numbers; BuildPdu measures it. False when it names another
// object.
bool rename(VarBind& binding, SubIds object, std::initializer_list<std::uint32_t> last) {
  const std::span<std::uint32_t> name(binding.name->oid_ptr,
                                      static_cast<std::size_t>(binding.name->length));
  if (name.size() != object.size() + last.size() ||
      !std::equal(object.begin(), object.end(), name.begin())) {
    return false;
  }
  std::copy(last.begin(), last.end(), name.last(last.size()).begin());
  return true;
}

}  // namespace

bool names_a_row(SubIds entry, std::uint32_t column, SubIds name) {
  return name.size() == entry.size() + 2 && std::equal(entry.begin(), entry.end(), name.begin()) &&
         name[entry.size()] == column;
}

int VarbindBuilder::operator()(std::initializer_list<std::uint32_t> last, Pdu& pdu) const {
  VarBind*& next = pdu.var_bind_end_ptr ? pdu.var_bind_end_ptr->next_var : pdu.var_bind_list;
  if (next && rename(*next, object, last)) {
    pdu.var_bind_end_ptr = next;
    return 0;
  }
  FreeVarBindList(std::exchange(next, nullptr));
  const OidPtr oid(MakeOID(nullptr, static_cast<std::int32_t>(object.size() + last.size())));
  if (!oid) {
    log_debug("%s", oid_failed);
    return -1;
  }
  std::copy(last.begin(), last.end(), std::copy(object.begin(), object.end(), oid->oid_ptr));
  VarBind* const binding = MakeVarBindWithNull(oid.get(), nullptr);
  if (!binding) {
    log_debug("%s", varbind_failed);
    return -1;
  }
  return LinkVarBind(&pdu, binding);
}

int add_pdu_varbind(SubIds entry, std::uint32_t column, std::uint32_t index, Pdu& pdu) {
  const VarbindBuilder add{entry, "Error making OID in add_pdu_varbind",
                           "Error making VarBind in add_pdu_varbind"};
  return add({column, index}, pdu);
}

int add_portduplex_varbind(std::string_view interface_name, Pdu& pdu) {
  interface_name.remove_prefix(
      std::min(interface_name.find_first_of("0123456789"), interface_name.size()));
  const auto module = take_number(interface_name);
  if (!module || !interface_name.starts_with('/')) return -1;
  interface_name.remove_prefix(1);
  const auto port = take_number(interface_name);
  if (!port || *module < 1 || *module > kMostModules || *port < 1 || *port > kMostPorts) return -1;
  constexpr VarbindBuilder kAdd{kPortDuplexColumn, "Error making OID for portDuplex.",
                                "Error making VarBind for portDuplex"};
  return kAdd({*module, *port}, pdu);
}

}  // namespace tally
