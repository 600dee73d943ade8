// The objects that are asked for, and the builders that append them to a request.
//
// A template is an object identifier whose last one to three numbers are set just before it is
// used: the column, where a template serves several, and the instance. Templates are process-wide
// and changed in place.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "snmp/values.h"

namespace tally {

inline constexpr std::int32_t kMaxTemplate = 15;  // sub-identifiers

struct OidTemplate {
  std::int32_t length;
  std::int32_t fixed;  // how many of them are never set
  std::uint32_t sids[kMaxTemplate];
};

extern OidTemplate etherStatsEntry;              // RMON-MIB (RFC 2819): column, etherStatsIndex
extern OidTemplate etherStatsHighCapacityEntry;  // HC-RMON-MIB (RFC 3273): column, etherStatsIndex
extern OidTemplate ifOperStatus;                 // IF-MIB (RFC 2863): ifIndex
extern OidTemplate ifName;                       // IF-MIB: ifIndex
extern OidTemplate ifEntry;                      // IF-MIB: column, ifIndex
extern OidTemplate ifXEntry;                     // IF-MIB: column, ifIndex
extern OidTemplate smonVlanStatsControlEntry;    // SMON-MIB (RFC 2613): column, control index
extern OidTemplate smonVlanIdStatsEntry;         // SMON-MIB: column, control index, VLAN id

// names_a_row tells whether a returned name is an instance of the template's object: as long as the
// template, with the same fixed numbers.
bool names_a_row(const OidTemplate& object, std::span<const std::uint32_t> name);

// The builders append one binding with a NULL value. 0, or -1 (logs).
int add_sysuptime_varbind(Pdu& pdu);
int add_ifspeed_varbind(std::uint32_t if_index, Pdu& pdu);
int add_iflastchange_varbind(std::uint32_t if_index, Pdu& pdu);
int add_ifoperstatus_varbind(std::uint32_t if_index, Pdu& pdu);
int add_ifname_varbind(std::uint32_t if_index, Pdu& pdu);
int add_duplexstatus_varbind(std::uint32_t if_index, Pdu& pdu);

// add_pdu_varbind is for templates of (column, index), add_vlan_pdu_varbind for
// smonVlanIdStatsEntry.
int add_pdu_varbind(OidTemplate& object, std::uint32_t column, std::uint32_t index, Pdu& pdu);
int add_vlan_pdu_varbind(OidTemplate& object, std::uint32_t column, std::uint32_t control_index,
                         std::uint32_t vlan_id, Pdu& pdu);

// add_portduplex_varbind takes module and port from an interface name: "3/12", with anything in
// front of the first digit and anything behind the last. Modules are 1 to 13 and ports 1 to 48; any
// other name is -1 without a message.
int add_portduplex_varbind(std::string_view interface_name, Pdu& pdu);

}  // namespace tally
