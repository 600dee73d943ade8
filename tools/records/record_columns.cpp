#include "records/record_columns.h"

#include <strings.h>

#include <algorithm>

#include "daemon/base/collection_types.h"

namespace tally {
namespace {

using enum ColumnKind;

constexpr Column kHostColumns[] = {
    {"hostAddress", mac, "", "mac"},
    {"hostInPkts", counter, "packets", "in_packets"},
    {"hostOutPkts", counter, "packets", "out_packets"},
    {"hostInOctets", counter, "octets", "in_octets"},
    {"hostOutOctets", counter, "octets", "out_octets"},
    {"hostOutErrors", counter, "packets", "out_error_packets"},
    {"hostOutBroadcastPkts", counter, "packets", "out_broadcast_packets"},
    {"hostOutMulticastPkts", counter, "packets", "out_multicast_packets"},
};

constexpr Column kMatrixColumns[] = {
    {"matrixSDSourceAddress", mac, "", "source"},
    {"matrixSDDestAddress", mac, "", "destination"},
    {"matrixSDPkts", counter, "packets", "packets"},
    {"matrixSDOctets", counter, "octets", "octets"},
    {"matrixSDErrors", counter, "packets", "error_packets"},
};

constexpr Column kPdistColumns[] = {
    {"protocol_tag", number, "", "tag"},
    {"protocolDirLocalIndex", number_or_total, "", "protocol"},
    {"protocolDistStatsPkts", counter, "packets", "packets"},
    {"protocolDistStatsOctets", counter, "octets", "octets"},
};

constexpr Column kNlHostColumns[] = {
    {"protocolDirLocalIndex", number, "", "protocol"},
    {"address length", length, "", ""},
    {"nlHostAddress", address, "", "address"},
    {"nlHostInPkts", counter, "packets", "in_packets"},
    {"nlHostOutPkts", counter, "packets", "out_packets"},
    {"nlHostInOctets", counter, "octets", "in_octets"},
    {"nlHostOutOctets", counter, "octets", "out_octets"},
    {"nlHostOutMacNonUnicastPkts", counter, "packets", "out_mac_non_unicast_packets"},
};

constexpr Column kNlMatrixColumns[] = {
    {"protocolDirLocalIndex", number, "", "protocol"},
    {"source length", length, "", ""},
    {"nlMatrixSDSourceAddress", address, "", "source"},
    {"destination length", length, "", ""},
    {"nlMatrixSDDestAddress", address, "", "destination"},
    {"nlMatrixSDPkts", counter, "packets", "packets"},
    {"nlMatrixSDOctets", counter, "octets", "octets"},
};

// Also what the supervisor's VLAN statistics look like.
constexpr Column kVlanColumns[] = {
    {"smonVlanIdStatsId", number, "", "vlan"},
    {"smonVlanIdStatsTotalPkts", counter, "packets", "packets"},
    {"smonVlanIdStatsTotalOctets", counter, "octets", "octets"},
    {"smonVlanIdStatsNUcastPkts", counter, "packets", "non_unicast_packets"},
    {"smonVlanIdStatsNUcastOctets", counter, "octets", "non_unicast_octets"},
};

constexpr Column kPrioColumns[] = {
    {"smonPrioStatsId", number, "", "priority"},
    {"smonPrioStatsPkts", counter, "packets", "packets"},
    {"smonPrioStatsOctets", counter, "octets", "octets"},
};

constexpr Column kDsStatsColumns[] = {
    {"dsmonAggGroupIndex", number, "", "group"},
    {"dsmonStatsInPkts", counter, "packets", "in_packets"},
    {"dsmonStatsInOctets", counter, "octets", "in_octets"},
    {"dsmonStatsOutPkts", counter, "packets", "out_packets"},
    {"dsmonStatsOutOctets", counter, "octets", "out_octets"},
};

constexpr Column kDsPdistColumns[] = {
    {"dsmonAggGroupIndex", number, "", "group"},
    {"protocolDirLocalIndex", number, "", "protocol"},
    {"dsmonPdistStatsPkts", counter, "packets", "packets"},
    {"dsmonPdistStatsOctets", counter, "octets", "octets"},
};

// The words beside the addresses of the next two travel with them and are part of the key, so they
// are shown. Where such a word is a length that fits its address, the address is read by it.
constexpr Column kDsHostColumns[] = {
    {"dsmonAggGroupIndex", number, "", "group"},
    {"protocolDirLocalIndex", number, "", "protocol"},
    {"address_word", number, "", "address_word"},
    {"dsmonHostAddress", address, "", "address"},
    {"dsmonHostInPkts", counter, "packets", "in_packets"},
    {"dsmonHostInOctets", counter, "octets", "in_octets"},
    {"dsmonHostOutPkts", counter, "packets", "out_packets"},
    {"dsmonHostOutOctets", counter, "octets", "out_octets"},
};

constexpr Column kDsMatrixColumns[] = {
    {"dsmonAggGroupIndex", number, "", "group"},
    {"protocolDirLocalIndex", number, "", "protocol"},
    {"key_word_2", number, "", "key_word_2"},
    {"dsmonMatrixSDSourceAddress", address, "", "source"},
    {"key_word_3", number, "", "key_word_3"},
    {"dsmonMatrixSDDestAddress", address, "", "destination"},
    {"key_word_1", number, "", "key_word_1"},
    {"dsmonMatrixSDPkts", counter, "packets", "packets"},
    {"dsmonMatrixSDOctets", counter, "octets", "octets"},
};

constexpr Column kEtherStatsColumns[] = {
    {"ifIndex", number, "", "ifindex"},
    {"etherStatsIndex", number, "", "etherstats_index"},
    {"name length", length, "", ""},
    {"ifName", name, "", "ifname"},
    {"utilisationPercent", percent, "percent", "utilisation"},
    {"etherStatsDropEvents", counter, "events", "drop_events"},
    {"etherStatsOctets", counter, "octets", "octets"},
    {"etherStatsPkts", counter, "packets", "packets"},
    {"etherStatsBroadcastPkts", counter, "packets", "broadcast_packets"},
    {"etherStatsMulticastPkts", counter, "packets", "multicast_packets"},
    {"etherStatsCRCAlignErrors", counter, "packets", "crc_align_error_packets"},
    {"etherStatsUndersizePkts", counter, "packets", "undersize_packets"},
    {"etherStatsOversizePkts", counter, "packets", "oversize_packets"},
    {"etherStatsFragments", counter, "packets", "fragment_packets"},
    {"etherStatsJabbers", counter, "packets", "jabber_packets"},
    {"etherStatsCollisions", counter, "events", "collisions"},
    {"etherStatsPkts64Octets", counter, "packets", "packets_64_octets"},
    {"etherStatsPkts65to127Octets", counter, "packets", "packets_65_to_127_octets"},
    {"etherStatsPkts128to255Octets", counter, "packets", "packets_128_to_255_octets"},
    {"etherStatsPkts256to511Octets", counter, "packets", "packets_256_to_511_octets"},
    {"etherStatsPkts512to1023Octets", counter, "packets", "packets_512_to_1023_octets"},
    {"etherStatsPkts1024to1518Octets", counter, "packets", "packets_1024_to_1518_octets"},
};

// Named after ifTable; with a supervisor that has them the rates come from the 64-bit counters of
// ifXTable, and the file does not tell which.
constexpr Column kIfStatsColumns[] = {
    {"ifIndex", number, "", "ifindex"},
    {"name length", length, "", ""},
    {"ifName", name, "", "ifname"},
    {"inUtilisationPercent", percent, "percent", "in_utilisation"},
    {"outUtilisationPercent", percent, "percent", "out_utilisation"},
    {"ifInOctets", counter, "octets", "in_octets"},
    {"ifOutOctets", counter, "octets", "out_octets"},
    {"ifInUcastPkts", counter, "packets", "in_unicast_packets"},
    {"ifOutUcastPkts", counter, "packets", "out_unicast_packets"},
    {"ifInNUcastPkts", counter, "packets", "in_non_unicast_packets"},
    {"ifOutNUcastPkts", counter, "packets", "out_non_unicast_packets"},
    {"ifInDiscards", counter, "packets", "in_discarded_packets"},
    {"ifOutDiscards", counter, "packets", "out_discarded_packets"},
    {"ifInErrors", counter, "packets", "in_error_packets"},
    {"ifOutErrors", counter, "packets", "out_error_packets"},
};

// What stands in the samples where the delta file has the utilisation.
constexpr auto sample_of(std::span<const Column> delta) {
  std::array<Column, std::size(kIfStatsColumns)> columns{};
  std::copy(delta.begin(), delta.end(), columns.begin());
  columns[3] = {"ifSpeed", speed, "bits per second", "speed"};
  columns[4] = {"unused", unused, "", ""};
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

constexpr RecordLayout layout_of(std::span<const Column> columns, std::string_view rank_name,
                                 KeyRule key_rule) {
  RecordLayout layout{columns, {}, 0, columns.size(), 0, columns.size(), key_rule};
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

constexpr RecordLayout kLayouts[kTypeSlots] = {
    layout_of(kHostColumns, "hostOutOctets", kBytes),
    layout_of(kMatrixColumns, "matrixSDOctets", kBytes),
    layout_of(kPdistColumns, "protocolDistStatsOctets", {4, 1}),  // the tag takes no part
    layout_of(kNlHostColumns, "nlHostOutOctets", kBytes),
    layout_of(kNlMatrixColumns, "nlMatrixSDOctets", kBytes),
    layout_of(kVlanColumns, "smonVlanIdStatsTotalOctets", kOneNumber),
    layout_of(kPrioColumns, "smonPrioStatsOctets", kOneNumber),
    layout_of(kDsStatsColumns, "dsmonStatsOutOctets", kOneNumber),
    layout_of(kDsPdistColumns, "dsmonPdistStatsOctets", kTwoNumbers),
    layout_of(kDsHostColumns, "dsmonHostOutOctets", kBytes),
    layout_of(kDsMatrixColumns, "dsmonMatrixSDOctets", kBytes),
    {},
    layout_of(kEtherStatsColumns, "etherStatsOctets", kTwoNumbers),
    layout_of(kVlanColumns, "smonVlanIdStatsTotalOctets", kOneNumber),
    layout_of(kIfStatsColumns, "ifOutOctets", kOneNumber),
    {},
};
constexpr RecordLayout kIfStatsSample = layout_of(kIfStatsSampleColumns, "ifOutOctets", kOneNumber);

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
