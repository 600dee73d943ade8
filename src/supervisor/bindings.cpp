#include "supervisor/bindings.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>

#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"

namespace tally {

OidTemplate etherStatsEntry{12, 10, {1, 3, 6, 1, 2, 1, 16, 1, 1, 1}};
OidTemplate etherStatsHighCapacityEntry{12, 10, {1, 3, 6, 1, 2, 1, 16, 1, 7, 1}};
OidTemplate ifOperStatus{11, 10, {1, 3, 6, 1, 2, 1, 2, 2, 1, 8}};
OidTemplate ifName{12, 11, {1, 3, 6, 1, 2, 1, 31, 1, 1, 1, 1}};
OidTemplate ifEntry{11, 9, {1, 3, 6, 1, 2, 1, 2, 2, 1}};
OidTemplate ifXEntry{12, 10, {1, 3, 6, 1, 2, 1, 31, 1, 1, 1}};
OidTemplate smonVlanStatsControlEntry{14, 12, {1, 3, 6, 1, 2, 1, 16, 22, 1, 2, 1, 1}};
OidTemplate smonVlanIdStatsEntry{15, 12, {1, 3, 6, 1, 2, 1, 16, 22, 1, 2, 2, 1}};

namespace {

OidTemplate sysUpTime{9, 9, {1, 3, 6, 1, 2, 1, 1, 3, 0}};
OidTemplate ifSpeed{11, 10, {1, 3, 6, 1, 2, 1, 2, 2, 1, 5}};
OidTemplate ifLastChange{11, 10, {1, 3, 6, 1, 2, 1, 2, 2, 1, 9}};
OidTemplate duplexStatus{12, 11, {1, 3, 6, 1, 2, 1, 10, 7, 2, 1, 19}};  // EtherLike-MIB (RFC 3635)

constexpr std::uint32_t kMostModules = 13;
constexpr std::uint32_t kMostPorts = 48;

OidTemplate port_duplex_template() {
  static_assert(std::size(kPortDuplexColumn) == kMaxTemplate - 2,
                "TALLYD_PORT_TABLE_OID needs 13 numbers");
  OidTemplate object{kMaxTemplate, kMaxTemplate - 2, {}};
  std::copy(std::begin(kPortDuplexColumn), std::end(kPortDuplexColumn), object.sids);
  return object;
}
OidTemplate portDuplex = port_duplex_template();

// Some texts end in a full stop and some do not: kept as the system has them.
struct BindingTexts {
  const char* oid_failed;
  const char* varbind_failed;
};

// Sets the last numbers of the template and appends what it then names.
template <class... Sid>
int append(OidTemplate& object, const BindingTexts& texts, Pdu& pdu, Sid... last) {
  const std::uint32_t values[] = {last..., 0};
  std::copy_n(values, sizeof...(last), object.sids + object.length - sizeof...(last));
  const OidPtr oid(MakeOID(object.sids, object.length));
  if (!oid) {
    log_debug("%s", texts.oid_failed);
    return -1;
  }
  VarBind* const binding = MakeVarBindWithNull(oid.get(), nullptr);
  if (!binding) {
    log_debug("%s", texts.varbind_failed);
    return -1;
  }
  return LinkVarBind(&pdu, binding);
}

// Takes a decimal number off the front. Nothing when there is none, or one that 32 bits do not
// hold.
std::optional<std::uint32_t> take_number(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

bool names_a_row(const OidTemplate& object, std::span<const std::uint32_t> name) {
  return name.size() == static_cast<std::size_t>(object.length) &&
         std::equal(object.sids, object.sids + object.fixed, name.begin());
}

int add_sysuptime_varbind(Pdu& pdu) {
  return append(sysUpTime,
                {"Error making OID for sysUpTime.", "Error making VarBind for sysUpTime"}, pdu);
}

int add_ifspeed_varbind(std::uint32_t if_index, Pdu& pdu) {
  return append(ifSpeed, {"Error making OID for ifSpeed.", "Error making VarBind for ifSpeed"}, pdu,
                if_index);
}

int add_iflastchange_varbind(std::uint32_t if_index, Pdu& pdu) {
  return append(ifLastChange,
                {"Error making OID for ifLastChange.", "Error making VarBind for ifLastChange"},
                pdu, if_index);
}

int add_ifoperstatus_varbind(std::uint32_t if_index, Pdu& pdu) {
  return append(ifOperStatus,
                {"Error making OID for ifOperStatus.", "Error making VarBind for ifOperStatus."},
                pdu, if_index);
}

int add_ifname_varbind(std::uint32_t if_index, Pdu& pdu) {
  return append(ifName, {"Error making OID for ifName.", "Error making VarBind for ifName"}, pdu,
                if_index);
}

int add_duplexstatus_varbind(std::uint32_t if_index, Pdu& pdu) {
  return append(duplexStatus,
                {"Error making OID for duplexStatus.", "Error making VarBind for duplexStatus"},
                pdu, if_index);
}

int add_pdu_varbind(OidTemplate& object, std::uint32_t column, std::uint32_t index, Pdu& pdu) {
  return append(object,
                {"Error making OID in add_pdu_varbind", "Error making VarBind in add_pdu_varbind"},
                pdu, column, index);
}

int add_vlan_pdu_varbind(OidTemplate& object, std::uint32_t column, std::uint32_t control_index,
                         std::uint32_t vlan_id, Pdu& pdu) {
  return append(
      object,
      {"Error making OID in add_vlan_pdu_varbind", "Error making VarBind in add_vlan_pdu_varbind"},
      pdu, column, control_index, vlan_id);
}

int add_portduplex_varbind(std::string_view interface_name, Pdu& pdu) {
  interface_name.remove_prefix(
      std::min(interface_name.find_first_of("0123456789"), interface_name.size()));
  const auto module = take_number(interface_name);
  if (!module || !interface_name.starts_with('/')) return -1;
  interface_name.remove_prefix(1);
  const auto port = take_number(interface_name);
  if (!port || *module < 1 || *module > kMostModules || *port < 1 || *port > kMostPorts) return -1;
  return append(portDuplex,
                {"Error making OID for portDuplex.", "Error making VarBind for portDuplex"}, pdu,
                *module, *port);
}

}  // namespace tally
