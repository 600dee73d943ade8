#include "records/record_columns.h"

#include <strings.h>

#include <algorithm>

#include "daemon/base/collection_types.h"

namespace tally {
namespace {

using enum ColumnKind;

constexpr Column key(const char* name, const char* heading, ColumnKind kind, const char* metric,
                     NameKind names = NameKind::none) {
  return {name, heading, kind, Unit::none, metric, names};
}
constexpr Column detail(const char* name, const char* heading, ColumnKind kind,
                        const char* metric) {
  return {name, heading, kind, Unit::none, metric, NameKind::none, true};
}
constexpr Column length_of(const char* name) {
  return {name, "", length, Unit::none, ""};
}
constexpr Column octets(const char* name, const char* heading, const char* metric) {
  return {name, heading, counter, Unit::octets, metric};
}
constexpr Column packets(const char* name, const char* heading, const char* metric) {
  return {name, heading, counter, Unit::packets, metric};
}
constexpr Column events(const char* name, const char* heading, const char* metric) {
  return {name, heading, counter, Unit::events, metric};
}
constexpr Column percentage(const char* name, const char* heading, const char* metric) {
  return {name, heading, percent, Unit::percent, metric};
}

constexpr Column kHostColumns[] = {
    key("hostAddress", "Host", mac, "mac", NameKind::station),
    packets("hostInPkts", "In", "in_packets"),
    packets("hostOutPkts", "Out", "out_packets"),
    octets("hostInOctets", "In", "in_octets"),
    octets("hostOutOctets", "Out", "out_octets"),
    events("hostOutErrors", "Out errors", "out_error_packets"),
    events("hostOutBroadcastPkts", "Out broadcast", "out_broadcast_packets"),
    events("hostOutMulticastPkts", "Out multicast", "out_multicast_packets"),
};

constexpr Column kMatrixColumns[] = {
    key("matrixSDSourceAddress", "Source", mac, "source", NameKind::station),
    key("matrixSDDestAddress", "Destination", mac, "destination", NameKind::station),
    packets("matrixSDPkts", "", "packets"),
    octets("matrixSDOctets", "", "octets"),
    events("matrixSDErrors", "Errors", "error_packets"),
};

constexpr Column kPdistColumns[] = {
    detail("protocol_tag", "Tag", number, "tag"),
    key("protocolDirLocalIndex", "Protocol", number_or_total, "protocol", NameKind::protocol),
    packets("protocolDistStatsPkts", "", "packets"),
    octets("protocolDistStatsOctets", "", "octets"),
};

constexpr Column kNlHostColumns[] = {
    key("protocolDirLocalIndex", "Protocol", number, "protocol", NameKind::protocol),
    length_of("address length"),
    key("nlHostAddress", "Host", address, "address", NameKind::station),
    packets("nlHostInPkts", "In", "in_packets"),
    packets("nlHostOutPkts", "Out", "out_packets"),
    octets("nlHostInOctets", "In", "in_octets"),
    octets("nlHostOutOctets", "Out", "out_octets"),
    events("nlHostOutMacNonUnicastPkts", "Out non-unicast", "out_mac_non_unicast_packets"),
};

constexpr Column kNlMatrixColumns[] = {
    key("protocolDirLocalIndex", "Protocol", number, "protocol", NameKind::protocol),
    length_of("source length"),
    key("nlMatrixSDSourceAddress", "Source", address, "source", NameKind::station),
    length_of("destination length"),
    key("nlMatrixSDDestAddress", "Destination", address, "destination", NameKind::station),
    packets("nlMatrixSDPkts", "", "packets"),
    octets("nlMatrixSDOctets", "", "octets"),
};

// Also what the supervisor's VLAN statistics look like.
constexpr Column kVlanColumns[] = {
    key("smonVlanIdStatsId", "VLAN", number, "vlan", NameKind::vlan),
    packets("smonVlanIdStatsTotalPkts", "", "packets"),
    octets("smonVlanIdStatsTotalOctets", "", "octets"),
    packets("smonVlanIdStatsNUcastPkts", "Non-unicast", "non_unicast_packets"),
    octets("smonVlanIdStatsNUcastOctets", "Non-unicast", "non_unicast_octets"),
};

constexpr Column kPrioColumns[] = {
    key("smonPrioStatsId", "Priority", number, "priority", NameKind::priority),
    packets("smonPrioStatsPkts", "", "packets"),
    octets("smonPrioStatsOctets", "", "octets"),
};

constexpr Column kDsStatsColumns[] = {
    key("dsmonAggGroupIndex", "Group", number, "group", NameKind::group),
    packets("dsmonStatsInPkts", "In", "in_packets"),
    octets("dsmonStatsInOctets", "In", "in_octets"),
    packets("dsmonStatsOutPkts", "Out", "out_packets"),
    octets("dsmonStatsOutOctets", "Out", "out_octets"),
};

constexpr Column kDsPdistColumns[] = {
    key("dsmonAggGroupIndex", "Group", number, "group", NameKind::group),
    key("protocolDirLocalIndex", "Protocol", number, "protocol", NameKind::protocol),
    packets("dsmonPdistStatsPkts", "", "packets"),
    octets("dsmonPdistStatsOctets", "", "octets"),
};

// The words beside the addresses of the next two travel with them and are part of the key. Where
// such a word is a length that fits its address, the address is read by it.
constexpr Column kDsHostColumns[] = {
    key("dsmonAggGroupIndex", "Group", number, "group", NameKind::group),
    key("protocolDirLocalIndex", "Protocol", number, "protocol", NameKind::protocol),
    detail("address_word", "Address word", number, "address_word"),
    key("dsmonHostAddress", "Host", address, "address", NameKind::station),
    packets("dsmonHostInPkts", "In", "in_packets"),
    octets("dsmonHostInOctets", "In", "in_octets"),
    packets("dsmonHostOutPkts", "Out", "out_packets"),
    octets("dsmonHostOutOctets", "Out", "out_octets"),
};

constexpr Column kDsMatrixColumns[] = {
    key("dsmonAggGroupIndex", "Group", number, "group", NameKind::group),
    key("protocolDirLocalIndex", "Protocol", number, "protocol", NameKind::protocol),
    detail("key_word_2", "Key word 2", number, "key_word_2"),
    key("dsmonMatrixSDSourceAddress", "Source", address, "source", NameKind::station),
    detail("key_word_3", "Key word 3", number, "key_word_3"),
    key("dsmonMatrixSDDestAddress", "Destination", address, "destination", NameKind::station),
    detail("key_word_1", "Key word 1", number, "key_word_1"),
    packets("dsmonMatrixSDPkts", "", "packets"),
    octets("dsmonMatrixSDOctets", "", "octets"),
};

constexpr Column kEtherStatsColumns[] = {
    key("ifIndex", "Index", number, "ifindex"),
    detail("etherStatsIndex", "Statistics", number, "etherstats_index"),
    length_of("name length"),
    key("ifName", "Interface", name, "ifname"),
    percentage("utilisationPercent", "Use", "utilisation"),
    events("etherStatsDropEvents", "Dropped", "drop_events"),
    octets("etherStatsOctets", "", "octets"),
    packets("etherStatsPkts", "", "packets"),
    events("etherStatsBroadcastPkts", "Broadcast", "broadcast_packets"),
    events("etherStatsMulticastPkts", "Multicast", "multicast_packets"),
    events("etherStatsCRCAlignErrors", "CRC errors", "crc_align_error_packets"),
    events("etherStatsUndersizePkts", "Too short", "undersize_packets"),
    events("etherStatsOversizePkts", "Too long", "oversize_packets"),
    events("etherStatsFragments", "Fragments", "fragment_packets"),
    events("etherStatsJabbers", "Jabbers", "jabber_packets"),
    events("etherStatsCollisions", "Collisions", "collisions"),
    events("etherStatsPkts64Octets", "64 B", "packets_64_octets"),
    events("etherStatsPkts65to127Octets", "65-127 B", "packets_65_to_127_octets"),
    events("etherStatsPkts128to255Octets", "128-255 B", "packets_128_to_255_octets"),
    events("etherStatsPkts256to511Octets", "256-511 B", "packets_256_to_511_octets"),
    events("etherStatsPkts512to1023Octets", "512-1023 B", "packets_512_to_1023_octets"),
    events("etherStatsPkts1024to1518Octets", "1024-1518 B", "packets_1024_to_1518_octets"),
};

// Named after ifTable; with a supervisor that has them the rates come from the 64-bit counters of
// ifXTable, and the file does not tell which.
constexpr Column kIfStatsColumns[] = {
    key("ifIndex", "Index", number, "ifindex"),
    length_of("name length"),
    key("ifName", "Interface", name, "ifname"),
    percentage("inUtilisationPercent", "In use", "in_utilisation"),
    percentage("outUtilisationPercent", "Out use", "out_utilisation"),
    octets("ifInOctets", "In", "in_octets"),
    octets("ifOutOctets", "Out", "out_octets"),
    events("ifInUcastPkts", "In unicast", "in_unicast_packets"),
    events("ifOutUcastPkts", "Out unicast", "out_unicast_packets"),
    events("ifInNUcastPkts", "In other", "in_non_unicast_packets"),
    events("ifOutNUcastPkts", "Out other", "out_non_unicast_packets"),
    events("ifInDiscards", "In discards", "in_discarded_packets"),
    events("ifOutDiscards", "Out discards", "out_discarded_packets"),
    events("ifInErrors", "In errors", "in_error_packets"),
    events("ifOutErrors", "Out errors", "out_error_packets"),
};

// What stands in the samples where the delta file has the utilisation.
constexpr auto sample_of(std::span<const Column> delta) {
  std::array<Column, std::size(kIfStatsColumns)> columns{};
  std::copy(delta.begin(), delta.end(), columns.begin());
  columns[3] = {"ifSpeed", "Speed", speed, Unit::bits, "speed"};
  columns[4] = {"unused", "", unused, Unit::none, ""};
  return columns;
}
constexpr auto kIfStatsSampleColumns = sample_of(kIfStatsColumns);

constexpr std::size_t column_width(ColumnKind kind) {
  switch (kind) {
    case number:
    case number_or_total:
    case length:
      return 4;
    case mac:
      return 6;
    case address:
    case name:
      return 16;
    case counter:
    case percent:
    case speed:
    case unused:
      return 8;
  }
  return 0;
}

constexpr RecordLayout layout_of(const char* title, std::span<const Column> columns,
                                 std::string_view rank_name, KeyRule key_rule, TotalRule total) {
  RecordLayout layout{columns, {}, 0, columns.size(), 0, columns.size(), key_rule, title, total};
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (is_value(columns[i].kind) && layout.key_columns == columns.size()) {
      layout.key_columns = i;
      layout.key_size = layout.size;
    }
    layout.offsets[i] = static_cast<std::uint16_t>(layout.size);
    layout.size += column_width(columns[i].kind);
    if (rank_name == columns[i].name) layout.rank = i;
  }
  return layout;
}

constexpr KeyRule kBytes{0, 0};
constexpr KeyRule kOneNumber{0, 1};
constexpr KeyRule kTwoNumbers{0, 2};
constexpr KeyRule kSecondNumber{4, 1};  // of pdist: the tag takes no part

using enum TotalRule;
constexpr RecordLayout kLayouts[kTypeSlots] = {
    layout_of("Hosts by MAC address", kHostColumns, "hostOutOctets", kBytes, sum),
    layout_of("MAC conversations", kMatrixColumns, "matrixSDOctets", kBytes, sum),
    layout_of("Protocols", kPdistColumns, "protocolDistStatsOctets", kSecondNumber, row),
    layout_of("Network hosts", kNlHostColumns, "nlHostOutOctets", kBytes, sum),
    layout_of("Network conversations", kNlMatrixColumns, "nlMatrixSDOctets", kBytes, sum),
    layout_of("VLANs", kVlanColumns, "smonVlanIdStatsTotalOctets", kOneNumber, sum),
    layout_of("Priorities", kPrioColumns, "smonPrioStatsOctets", kOneNumber, sum),
    layout_of("DSMON groups", kDsStatsColumns, "dsmonStatsOutOctets", kOneNumber, sum),
    layout_of("DSMON groups by protocol", kDsPdistColumns, "dsmonPdistStatsOctets", kTwoNumbers,
              none),
    layout_of("DSMON groups by host", kDsHostColumns, "dsmonHostOutOctets", kBytes, sum),
    layout_of("DSMON conversations", kDsMatrixColumns, "dsmonMatrixSDOctets", kBytes, none),
    {},
    layout_of("Ethernet statistics of the switch", kEtherStatsColumns, "etherStatsOctets",
              kTwoNumbers, none),
    layout_of("VLANs of the switch", kVlanColumns, "smonVlanIdStatsTotalOctets", kOneNumber, sum),
    layout_of("Interfaces of the switch", kIfStatsColumns, "ifOutOctets", kOneNumber, none),
    {},
};
constexpr RecordLayout kIfStatsSample =
    layout_of("Interfaces of the switch", kIfStatsSampleColumns, "ifOutOctets", kOneNumber, none);

// place_of orders what is measured for people.
constexpr int place_of(const Column& column) {
  switch (column.unit) {
    case Unit::none:
      return 0;
    case Unit::percent:
    case Unit::bits:
      return 1;
    case Unit::octets:
      return 2;
    case Unit::packets:
      return 3;
    case Unit::events:
      return 4;
  }
  return 0;
}

}  // namespace

const RecordLayout* record_layout(std::uint32_t type, FileKind kind) {
  if (!is_agent_type(type) && !is_supervisor_type(type)) return nullptr;
  if (kind != FileKind::delta && type == kEtherStats) return nullptr;
  if (kind != FileKind::delta && type == kIfStats) return &kIfStatsSample;
  return &kLayouts[type];
}

std::optional<std::size_t> find_column(const RecordLayout& layout, const std::string& name) {
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    if (is_visible(column.kind) && strcasecmp(column.name, name.c_str()) == 0) return i;
  }
  return std::nullopt;
}

std::vector<std::size_t> people_columns(const RecordLayout& layout) {
  std::vector<std::size_t> columns;
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    if (is_visible(layout.columns[i].kind) && !layout.columns[i].detail) columns.push_back(i);
  }
  std::ranges::stable_sort(columns, {}, [&](std::size_t i) { return place_of(layout.columns[i]); });
  return columns;
}

std::string column_names(const RecordLayout& layout) {
  std::string names;
  for (const Column& column : layout.columns) {
    if (!is_visible(column.kind)) continue;
    if (!names.empty()) names += ", ";
    names += column.name;
  }
  return names;
}

}  // namespace tally
