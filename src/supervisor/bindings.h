// The objects that are asked for, and the builders that add them to a request.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

#include "snmp/values.h"

namespace tally {

using SubIds = std::span<const std::uint32_t>;

// Table entries. A column and an index follow.
// RMON-MIB (RFC 2819), HC-RMON-MIB (RFC 3273).
inline constexpr std::uint32_t etherStatsEntry[] = {1, 3, 6, 1, 2, 1, 16, 1, 1, 1};
inline constexpr std::uint32_t etherStatsHighCapacityEntry[] = {1, 3, 6, 1, 2, 1, 16, 1, 7, 1};
// IF-MIB (RFC 2863).
inline constexpr std::uint32_t ifEntry[] = {1, 3, 6, 1, 2, 1, 2, 2, 1};
inline constexpr std::uint32_t ifXEntry[] = {1, 3, 6, 1, 2, 1, 31, 1, 1, 1};
// SMON-MIB (RFC 2613). The second is indexed by control index and VLAN id.
inline constexpr std::uint32_t smonVlanStatsControlEntry[] = {1, 3, 6, 1, 2, 1, 16, 22, 1, 2, 1, 1};
inline constexpr std::uint32_t smonVlanIdStatsEntry[] = {1, 3, 6, 1, 2, 1, 16, 22, 1, 2, 2, 1};

// names_a_row tells whether a returned name is an instance of a column, in a table with one index.
bool names_a_row(SubIds entry, std::uint32_t column, SubIds name);

// VarbindBuilder appends bindings with a NULL value to requests. What follows `var_bind_end_ptr` is
// left of an earlier request: a binding of the same object is reused and only gets new numbers.
struct VarbindBuilder {
  SubIds object;
  const char* oid_failed;
  const char* varbind_failed;

  // Appends the object with these numbers behind it. 0, or -1 (logs).
  int operator()(std::initializer_list<std::uint32_t> last, Pdu& pdu) const;
};

// Builders for one object each. Some texts end in a full stop and some do not; they are kept as
// they are.
inline constexpr std::uint32_t kSysUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
inline constexpr std::uint32_t kIfSpeed[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 5};
inline constexpr std::uint32_t kIfOperStatus[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 8};
inline constexpr std::uint32_t kIfLastChange[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 9};
inline constexpr std::uint32_t kIfName[] = {1, 3, 6, 1, 2, 1, 31, 1, 1, 1, 1};
inline constexpr std::uint32_t kDot3StatsDuplexStatus[] = {1, 3, 6, 1, 2, 1, 10, 7, 2, 1, 19};

inline constexpr VarbindBuilder add_sysuptime_varbind{kSysUpTime, "Error making OID for sysUpTime.",
                                                      "Error making VarBind for sysUpTime"};
inline constexpr VarbindBuilder add_ifspeed_varbind{kIfSpeed, "Error making OID for ifSpeed.",
                                                    "Error making VarBind for ifSpeed"};
inline constexpr VarbindBuilder add_iflastchange_varbind{
    kIfLastChange, "Error making OID for ifLastChange.", "Error making VarBind for ifLastChange"};
inline constexpr VarbindBuilder add_ifoperstatus_varbind{
    kIfOperStatus, "Error making OID for ifOperStatus.", "Error making VarBind for ifOperStatus."};
inline constexpr VarbindBuilder add_ifname_varbind{kIfName, "Error making OID for ifName.",
                                                   "Error making VarBind for ifName"};
inline constexpr VarbindBuilder add_duplexstatus_varbind{kDot3StatsDuplexStatus,
                                                         "Error making OID for duplexStatus.",
                                                         "Error making VarBind for duplexStatus"};
inline constexpr VarbindBuilder add_vlan_pdu_varbind{
    smonVlanIdStatsEntry, "Error making OID in add_vlan_pdu_varbind",
    "Error making VarBind in add_vlan_pdu_varbind"};

// add_pdu_varbind is for tables with a single index. 0, or -1 (logs).
int add_pdu_varbind(SubIds entry, std::uint32_t column, std::uint32_t index, Pdu& pdu);

// add_portduplex_varbind takes module and port from an interface name: "3/12", with anything
// before the first digit and anything after the last. Modules are 1 to 13 and ports 1 to 48; for
// any other name it returns -1 without a message.
int add_portduplex_varbind(std::string_view interface_name, Pdu& pdu);

}  // namespace tally
