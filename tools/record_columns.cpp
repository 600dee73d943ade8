#include "record_columns.h"

#include <strings.h>

#include <string>

#include "daemon/collection_types.h"

namespace tally {
namespace {

using enum ColumnKind;

constexpr Column kHostColumns[] = {
    {"hostAddress", mac},           {"hostInPkts", rate},           {"hostOutPkts", rate},
    {"hostInOctets", rate},         {"hostOutOctets", rate},        {"hostOutErrors", rate},
    {"hostOutBroadcastPkts", rate}, {"hostOutMulticastPkts", rate},
};

constexpr Column kMatrixColumns[] = {
    {"matrixSDSourceAddress", mac}, {"matrixSDDestAddress", mac}, {"matrixSDPkts", rate},
    {"matrixSDOctets", rate},       {"matrixSDErrors", rate},
};

constexpr Column kPdistColumns[] = {
    {"protocol_tag", number},
    {"protocolDirLocalIndex", number_or_total},
    {"protocolDistStatsPkts", rate},
    {"protocolDistStatsOctets", rate},
};

constexpr Column kNlHostColumns[] = {
    {"protocolDirLocalIndex", number}, {"address length", length},
    {"nlHostAddress", address},        {"nlHostInPkts", rate},
    {"nlHostOutPkts", rate},           {"nlHostInOctets", rate},
    {"nlHostOutOctets", rate},         {"nlHostOutMacNonUnicastPkts", rate},
};

constexpr Column kNlMatrixColumns[] = {
    {"protocolDirLocalIndex", number},    {"source length", length},
    {"nlMatrixSDSourceAddress", address}, {"destination length", length},
    {"nlMatrixSDDestAddress", address},   {"nlMatrixSDPkts", rate},
    {"nlMatrixSDOctets", rate},
};

// Also what the supervisor's VLAN statistics look like.
constexpr Column kVlanColumns[] = {
    {"smonVlanIdStatsId", number},         {"smonVlanIdStatsTotalPkts", rate},
    {"smonVlanIdStatsTotalOctets", rate},  {"smonVlanIdStatsNUcastPkts", rate},
    {"smonVlanIdStatsNUcastOctets", rate},
};

constexpr Column kPrioColumns[] = {
    {"smonPrioStatsId", number},
    {"smonPrioStatsPkts", rate},
    {"smonPrioStatsOctets", rate},
};

constexpr Column kDsStatsColumns[] = {
    {"dsmonAggGroupIndex", number}, {"dsmonStatsInPkts", rate},    {"dsmonStatsInOctets", rate},
    {"dsmonStatsOutPkts", rate},    {"dsmonStatsOutOctets", rate},
};

constexpr Column kDsPdistColumns[] = {
    {"dsmonAggGroupIndex", number},
    {"protocolDirLocalIndex", number},
    {"dsmonPdistStatsPkts", rate},
    {"dsmonPdistStatsOctets", rate},
};

// The words beside the addresses of the next two travel with them and are part of the key, so they
// are shown. Where such a word is a length that fits its address, the address is read by it.
constexpr Column kDsHostColumns[] = {
    {"dsmonAggGroupIndex", number}, {"protocolDirLocalIndex", number}, {"address_word", number},
    {"dsmonHostAddress", address},  {"dsmonHostInPkts", rate},         {"dsmonHostInOctets", rate},
    {"dsmonHostOutPkts", rate},     {"dsmonHostOutOctets", rate},
};

constexpr Column kDsMatrixColumns[] = {
    {"dsmonAggGroupIndex", number}, {"protocolDirLocalIndex", number},
    {"key_word_2", number},         {"dsmonMatrixSDSourceAddress", address},
    {"key_word_3", number},         {"dsmonMatrixSDDestAddress", address},
    {"key_word_1", number},         {"dsmonMatrixSDPkts", rate},
    {"dsmonMatrixSDOctets", rate},
};

constexpr Column kEtherStatsColumns[] = {
    {"ifIndex", number},
    {"etherStatsIndex", number},
    {"name length", length},
    {"ifName", name},
    {"utilisationPercent", percent},
    {"etherStatsDropEvents", rate},
    {"etherStatsOctets", rate},
    {"etherStatsPkts", rate},
    {"etherStatsBroadcastPkts", rate},
    {"etherStatsMulticastPkts", rate},
    {"etherStatsCRCAlignErrors", rate},
    {"etherStatsUndersizePkts", rate},
    {"etherStatsOversizePkts", rate},
    {"etherStatsFragments", rate},
    {"etherStatsJabbers", rate},
    {"etherStatsCollisions", rate},
    {"etherStatsPkts64Octets", rate},
    {"etherStatsPkts65to127Octets", rate},
    {"etherStatsPkts128to255Octets", rate},
    {"etherStatsPkts256to511Octets", rate},
    {"etherStatsPkts512to1023Octets", rate},
    {"etherStatsPkts1024to1518Octets", rate},
};

// Named after ifTable; with a supervisor that has them the rates come from the 64-bit counters of
// ifXTable, and the file does not tell which.
constexpr Column kIfStatsColumns[] = {
    {"ifIndex", number},
    {"name length", length},
    {"ifName", name},
    {"inUtilisationPercent", percent},
    {"outUtilisationPercent", percent},
    {"ifInOctets", rate},
    {"ifOutOctets", rate},
    {"ifInUcastPkts", rate},
    {"ifOutUcastPkts", rate},
    {"ifInNUcastPkts", rate},
    {"ifOutNUcastPkts", rate},
    {"ifInDiscards", rate},
    {"ifOutDiscards", rate},
    {"ifInErrors", rate},
    {"ifOutErrors", rate},
};

constexpr RecordLayout layout_of(std::span<const Column> columns, std::string_view rank_name) {
  RecordLayout layout{columns, 0, columns.size()};
  for (std::size_t i = 0; i < columns.size(); ++i) {
    layout.size += column_width(columns[i].kind);
    if (rank_name == columns[i].name) layout.rank = i;
  }
  return layout;
}

constexpr RecordLayout kLayouts[kTypeSlots] = {
    layout_of(kHostColumns, "hostOutOctets"),
    layout_of(kMatrixColumns, "matrixSDOctets"),
    layout_of(kPdistColumns, "protocolDistStatsOctets"),
    layout_of(kNlHostColumns, "nlHostOutOctets"),
    layout_of(kNlMatrixColumns, "nlMatrixSDOctets"),
    layout_of(kVlanColumns, "smonVlanIdStatsTotalOctets"),
    layout_of(kPrioColumns, "smonPrioStatsOctets"),
    layout_of(kDsStatsColumns, "dsmonStatsOutOctets"),
    layout_of(kDsPdistColumns, "dsmonPdistStatsOctets"),
    layout_of(kDsHostColumns, "dsmonHostOutOctets"),
    layout_of(kDsMatrixColumns, "dsmonMatrixSDOctets"),
    {},
    layout_of(kEtherStatsColumns, "etherStatsOctets"),
    layout_of(kVlanColumns, "smonVlanIdStatsTotalOctets"),
    layout_of(kIfStatsColumns, "ifOutOctets"),
    {},
};

}  // namespace

const RecordLayout* record_layout(std::uint32_t type) {
  if (!is_agent_type(type) && !is_supervisor_type(type)) return nullptr;
  return &kLayouts[type];
}

std::size_t column_offset(const RecordLayout& layout, std::size_t column) {
  std::size_t offset = 0;
  for (std::size_t i = 0; i < column; ++i) offset += column_width(layout.columns[i].kind);
  return offset;
}

std::optional<std::size_t> find_column(const RecordLayout& layout, std::string_view name) {
  const std::string wanted(name);
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    const Column& column = layout.columns[i];
    if (column.kind != ColumnKind::length && strcasecmp(column.name, wanted.c_str()) == 0) return i;
  }
  return std::nullopt;
}

std::string column_names(const RecordLayout& layout) {
  std::string names;
  for (const Column& column : layout.columns) {
    if (column.kind == ColumnKind::length) continue;
    if (!names.empty()) names += ", ";
    names += column.name;
  }
  return names;
}

}  // namespace tally
