// What the records of each collection type hold: one table, from which everything else follows.
//
// Columns stand in the order of the record, without a gap; all numbers are little-endian. Names are
// those of the MIB objects (RFC 2819, 4502, 2613, 3287, 2863); what no MIB knows has a plain name.
// The columns before the first rate are the key of a row.

export const HEADER_SIZE = 16;
export const TOTAL = 0xffffffff;  // in a column of kind "total": the row that sums up the others

// Bytes of a column by its kind.
export const WIDTH = {
  number: 4,   // u32
  total: 4,    // u32; TOTAL marks the row of all traffic
  length: 4,   // u32, how many bytes of the next column count; not shown
  mac: 6,
  address: 16, // of which as many bytes count as the u32 before it says
  name: 16,    // text, likewise
  rate: 8,     // double, change per second
  percent: 8,  // double, 0 to 100
};

const VLAN = `smonVlanIdStatsId:number smonVlanIdStatsTotalPkts:rate smonVlanIdStatsTotalOctets:rate
  smonVlanIdStatsNUcastPkts:rate smonVlanIdStatsNUcastOctets:rate`;

// [code, stem, what it is, column by which the busiest rows are found, columns as name:kind]
const TYPES = [
  [0, "host", "Hosts by MAC address", "hostOutOctets",
    `hostAddress:mac hostInPkts:rate hostOutPkts:rate hostInOctets:rate hostOutOctets:rate
     hostOutErrors:rate hostOutBroadcastPkts:rate hostOutMulticastPkts:rate`],
  [1, "matrix", "MAC conversations", "matrixSDOctets",
    `matrixSDSourceAddress:mac matrixSDDestAddress:mac matrixSDPkts:rate matrixSDOctets:rate
     matrixSDErrors:rate`],
  [2, "pdist", "Protocols", "protocolDistStatsOctets",
    `protocol_tag:number protocolDirLocalIndex:total protocolDistStatsPkts:rate
     protocolDistStatsOctets:rate`],
  [3, "nlhost", "Network hosts", "nlHostOutOctets",
    `protocolDirLocalIndex:number address_length:length nlHostAddress:address nlHostInPkts:rate
     nlHostOutPkts:rate nlHostInOctets:rate nlHostOutOctets:rate nlHostOutMacNonUnicastPkts:rate`],
  [4, "nlmatrix", "Network conversations", "nlMatrixSDOctets",
    `protocolDirLocalIndex:number source_length:length nlMatrixSDSourceAddress:address
     destination_length:length nlMatrixSDDestAddress:address nlMatrixSDPkts:rate
     nlMatrixSDOctets:rate`],
  [5, "vlan", "VLANs", "smonVlanIdStatsTotalOctets", VLAN],
  [6, "prio", "Priorities", "smonPrioStatsOctets",
    "smonPrioStatsId:number smonPrioStatsPkts:rate smonPrioStatsOctets:rate"],
  [7, "dsstats", "DSMON groups", "dsmonStatsOutOctets",
    `dsmonAggGroupIndex:number dsmonStatsInPkts:rate dsmonStatsInOctets:rate
     dsmonStatsOutPkts:rate dsmonStatsOutOctets:rate`],
  [8, "dspdist", "DSMON groups by protocol", "dsmonPdistStatsOctets",
    `dsmonAggGroupIndex:number protocolDirLocalIndex:number dsmonPdistStatsPkts:rate
     dsmonPdistStatsOctets:rate`],
  [9, "dshost", "DSMON groups by host", "dsmonHostOutOctets",
    `dsmonAggGroupIndex:number protocolDirLocalIndex:number address_word:number
     dsmonHostAddress:address dsmonHostInPkts:rate dsmonHostInOctets:rate dsmonHostOutPkts:rate
     dsmonHostOutOctets:rate`],
  [10, "dsmatrix", "DSMON conversations", "dsmonMatrixSDOctets",
    `dsmonAggGroupIndex:number protocolDirLocalIndex:number key_word_2:number
     dsmonMatrixSDSourceAddress:address key_word_3:number dsmonMatrixSDDestAddress:address
     key_word_1:number dsmonMatrixSDPkts:rate dsmonMatrixSDOctets:rate`],
  [12, "etherstats", "Ethernet statistics of the switch", "etherStatsOctets",
    `ifIndex:number etherStatsIndex:number name_length:length ifName:name utilisationPercent:percent
     etherStatsDropEvents:rate etherStatsOctets:rate etherStatsPkts:rate
     etherStatsBroadcastPkts:rate etherStatsMulticastPkts:rate etherStatsCRCAlignErrors:rate
     etherStatsUndersizePkts:rate etherStatsOversizePkts:rate etherStatsFragments:rate
     etherStatsJabbers:rate etherStatsCollisions:rate etherStatsPkts64Octets:rate
     etherStatsPkts65to127Octets:rate etherStatsPkts128to255Octets:rate
     etherStatsPkts256to511Octets:rate etherStatsPkts512to1023Octets:rate
     etherStatsPkts1024to1518Octets:rate`],
  [13, "supvlan", "VLANs of the switch", "smonVlanIdStatsTotalOctets", VLAN],
  [14, "ifstats", "Interfaces of the switch", "ifOutOctets",
    `ifIndex:number name_length:length ifName:name inUtilisationPercent:percent
     outUtilisationPercent:percent ifInOctets:rate ifOutOctets:rate ifInUcastPkts:rate
     ifOutUcastPkts:rate ifInNUcastPkts:rate ifOutNUcastPkts:rate ifInDiscards:rate
     ifOutDiscards:rate ifInErrors:rate ifOutErrors:rate`],
];

// Offsets of the numbers by which rows are sorted and matched; those of other types are compared byte
// by byte, the whole key.
const ORDER = { pdist: [4], vlan: [0], prio: [0], dsstats: [0], dspdist: [0, 4], supvlan: [0], ifstats: [0] };

function layoutOf([code, stem, title, rankName, text]) {
  let offset = 0;
  const columns = text.split(/\s+/).map((field, number) => {
    const [name, kind] = field.split(":");
    const column = { number, name, kind, offset, isRate: kind === "rate" || kind === "percent" };
    offset += WIDTH[kind];
    return column;
  });
  return {
    code, stem, title, columns,
    size: offset,
    order: ORDER[stem],
    keySize: columns.find((column) => column.isRate).offset,
    shown: columns.filter((column) => column.kind !== "length"),
    rates: columns.filter((column) => column.isRate),
    percents: columns.filter((column) => column.kind === "percent"),
    totals: columns.find((column) => column.kind === "total"),  // its row replaces a sum
    rank: columns.find((column) => column.name === rankName),
    supervisor: code >= 12,       // one collection, without an index
    creatable: stem !== "dsmatrix",
  };
}

// Layouts by stem, in the order of the codes.
export const LAYOUTS = new Map(TYPES.map((type) => [type[1], layoutOf(type)]));
