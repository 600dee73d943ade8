#include "minitapd/counting_tables.h"

#include <algorithm>
#include <array>
#include <span>

#include "minitapd/aging_table.h"
#include "minitapd/dense_table.h"
#include "minitapd/key_layout.h"

namespace minitapd {

namespace {

// key_of joins bytes and addresses to the bytes of a key.
template <std::size_t kSize>
void append(std::uint8_t*& out, const std::array<std::uint8_t, kSize>& part) {
  out = std::copy(part.begin(), part.end(), out);
}
void append(std::uint8_t*& out, std::uint8_t part) {
  *out++ = part;
}
template <class... Parts>
auto key_of(const Parts&... parts) {
  std::array<std::uint8_t, (sizeof(Parts) + ...)> key;
  std::uint8_t* out = key.data();
  (append(out, parts), ...);
  return key;
}

constexpr KeyField ascending(std::uint8_t slot, std::uint8_t width = 1) {
  return {KeyPart::ascending, slot, width};
}
constexpr KeyField little_endian(std::uint8_t slot) {
  return {KeyPart::little_endian, slot};
}
constexpr KeyField length(std::uint8_t slot) {
  return {KeyPart::length, slot};
}
constexpr KeyField address(std::uint8_t slot, std::uint8_t width = 16) {
  return {KeyPart::address, slot, width};
}

// Each table below says where its counters are (Rows: how many bytes of key, how many counters, in
// the order that Row has them), how its key stands in the bytes, what a frame adds, and what
// Row::detail is.

// RFC 2819 hostTable: stations found as source or destination of good frames. Frames with errors
// count for stations that are known.
struct Host {
  using Rows = AgingTable<6, 7>;
  static constexpr std::array kKey = {address(0, 6)};
  enum Column : std::size_t {
    kInPkts,
    kOutPkts,
    kInOctets,
    kOutOctets,
    kOutErrors,
    kOutBroadcastPkts,
    kOutMulticastPkts
  };
  static void count(const CountedFrame& frame, Rows& rows) {
    const Packet& packet = frame.packet;
    auto* source = frame.good ? &rows.touch(packet.source, frame.now) : rows.find(packet.source);
    if (source == nullptr) return;
    source->counters[kOutPkts] += 1;
    source->counters[kOutOctets] += packet.octets;
    if (!frame.good) {
      source->counters[kOutErrors] += 1;
      return;
    }
    if (packet.is_group()) {
      source->counters[packet.is_broadcast() ? kOutBroadcastPkts : kOutMulticastPkts] += 1;
    }
    auto& dest = rows.touch(packet.dest, frame.now).counters;
    dest[kInPkts] += 1;
    dest[kInOctets] += packet.octets;
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& entry) {
    return entry.ordinal;
  }
};

// RFC 2819 matrixSDTable: pairs of stations, source first.
struct Matrix {
  using Rows = AgingTable<12, 3>;
  static constexpr std::array kKey = {address(0, 6), address(1, 6)};
  enum Column : std::size_t { kPkts, kOctets, kErrors };
  static void count(const CountedFrame& frame, Rows& rows) {
    const auto pair = key_of(frame.packet.source, frame.packet.dest);
    auto* row = frame.good ? &rows.touch(pair, frame.now) : rows.find(pair);
    if (row == nullptr) return;
    row->counters[kPkts] += 1;
    row->counters[kOctets] += frame.packet.octets;
    if (!frame.good) row->counters[kErrors] += 1;
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

// The other tables count good frames only; `add` counts one in two columns.
template <std::size_t kCounters>
void add(TableEntry<kCounters>& row, const CountedFrame& frame, std::size_t pkts = 0,
         std::size_t octets = 1) {
  row.counters[pkts] += 1;
  row.counters[octets] += frame.packet.octets;
}

// RFC 4502 protocolDistStatsTable: a frame counts, with all its octets, for every protocol in it.
struct Pdist {
  using Rows = DenseTable<1, 256, 2>;
  static constexpr std::array kKey = {ascending(0)};
  static void count(const CountedFrame& frame, Rows& rows) {
    for (const LocalIndex index : frame.packet.stack()) add(rows.touch({index}, frame.now), frame);
  }
  static std::uint32_t detail(const Rows::Key& key, const Rows::Entry& /*entry*/) {
    const Protocol* protocol = find_protocol(key[0]);
    return protocol == nullptr ? 0 : static_cast<std::uint32_t>(protocol->layer);
  }
};

// RFC 4502 nlHostTable, per network protocol and address. Octets are those of the whole frame.
struct NlHost {
  using Rows = AgingTable<18, 5>;
  static constexpr std::array kKey = {little_endian(0), length(0), address(0)};
  enum Column : std::size_t { kInPkts, kOutPkts, kInOctets, kOutOctets, kOutNonUnicastPkts };
  static void count(const CountedFrame& frame, Rows& rows) {
    if (!frame.packet.network) return;
    const NetworkHeader& network = *frame.packet.network;
    auto& source =
        rows.touch(key_of(network.protocol, network.address_size, network.source), frame.now);
    add(source, frame, kOutPkts, kOutOctets);
    if (frame.packet.is_group()) source.counters[kOutNonUnicastPkts] += 1;
    add(rows.touch(key_of(network.protocol, network.address_size, network.dest), frame.now), frame,
        kInPkts, kInOctets);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& entry) {
    return entry.created;
  }
};

// RFC 4502 nlMatrixSDTable.
struct NlMatrix {
  using Rows = AgingTable<35, 2>;
  static constexpr std::array kKey = {little_endian(0), length(0), address(0), length(1),
                                      address(1)};
  static void count(const CountedFrame& frame, Rows& rows) {
    if (!frame.packet.network) return;
    const NetworkHeader& network = *frame.packet.network;
    add(rows.touch(key_of(network.protocol, network.address_size, network.source,
                          network.address_size, network.dest),
                   frame.now),
        frame);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& entry) {
    return entry.created;
  }
};

// RFC 2613 smonVlanIdStatsTable, by the outermost tag. The ids 0 (priority only) and 4095
// (reserved) do not name a VLAN (IEEE 802.1Q).
struct Vlan {
  using Rows = DenseTable<2, 4096, 4>;
  static constexpr std::array kKey = {ascending(0, 2)};
  enum Column : std::size_t { kPkts, kOctets, kNUcastPkts, kNUcastOctets };
  static void count(const CountedFrame& frame, Rows& rows) {
    if (!frame.packet.tag) return;
    const std::uint16_t id = frame.packet.tag->id;
    if (id == 0 || id == 4095) return;
    auto& row =
        rows.touch({static_cast<std::uint8_t>(id >> 8), static_cast<std::uint8_t>(id)}, frame.now);
    add(row, frame, kPkts, kOctets);
    if (frame.packet.is_group()) add(row, frame, kNUcastPkts, kNUcastOctets);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& entry) {
    return entry.created;
  }
};

// RFC 2613 smonPrioStatsTable. It has all eight priorities from the start. A frame without a tag
// has priority 0, the one that a bridge gives it unless told otherwise.
struct Prio {
  using Rows = DenseTable<1, 8, 2>;
  static constexpr std::array kKey = {ascending(0)};
  static void prepare(Rows& rows) {
    for (std::uint8_t priority = 0; priority < 8; ++priority) rows.touch({priority}, 0);
  }
  static void count(const CountedFrame& frame, Rows& rows) {
    const auto& tag = frame.packet.tag;
    add(rows.touch({tag ? tag->priority : std::uint8_t{0}}, frame.now), frame);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

// The DSMON tables (RFC 3287) count IP. Each DSCP is an aggregation group of its own, so that a
// group's number is the DSCP.
const NetworkHeader* ip_of(const CountedFrame& frame) {
  const auto& network = frame.packet.network;
  return network && network->is_ip() ? &*network : nullptr;
}

// dsmonStatsTable: out is what the capturing station sent, in is everything else.
struct DsStats {
  using Rows = DenseTable<1, 64, 4>;
  static constexpr std::array kKey = {ascending(0)};
  enum Column : std::size_t { kInPkts, kInOctets, kOutPkts, kOutOctets };
  static void count(const CountedFrame& frame, Rows& rows) {
    const NetworkHeader* ip = ip_of(frame);
    if (ip == nullptr) return;
    add(rows.touch({ip->dscp}, frame.now), frame, frame.sent ? kOutPkts : kInPkts,
        frame.sent ? kOutOctets : kInOctets);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

// dsmonPdistStatsTable: protocols as in Pdist.
struct DsPdist {
  using Rows = DenseTable<2, std::size_t{64} * 256, 2>;
  static constexpr std::array kKey = {ascending(0), ascending(1)};
  static void count(const CountedFrame& frame, Rows& rows) {
    const NetworkHeader* ip = ip_of(frame);
    if (ip == nullptr) return;
    for (const LocalIndex index : frame.packet.stack()) {
      add(rows.touch({ip->dscp, index}, frame.now), frame);
    }
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

// dsmonHostTable, by network protocol and address. The address word is the address's length.
struct DsHost {
  using Rows = AgingTable<19, 4>;
  static constexpr std::array kKey = {little_endian(0), little_endian(1), little_endian(2),
                                      address(0)};
  enum Column : std::size_t { kInPkts, kInOctets, kOutPkts, kOutOctets };
  static void count(const CountedFrame& frame, Rows& rows) {
    const NetworkHeader* ip = ip_of(frame);
    if (ip == nullptr) return;
    const auto key = [ip](const NetworkAddress& address) {
      return key_of(ip->dscp, ip->protocol, ip->address_size, address);
    };
    add(rows.touch(key(ip->source), frame.now), frame, kOutPkts, kOutOctets);
    add(rows.touch(key(ip->dest), frame.now), frame, kInPkts, kInOctets);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

// dsmonMatrixSDTable. The key words are the topmost protocol of the frame, the length of the source
// address and that of the destination address.
struct DsMatrix {
  using Rows = AgingTable<37, 2>;
  static constexpr std::array kKey = {little_endian(0), little_endian(1), little_endian(3),
                                      address(0),       little_endian(4), address(1),
                                      little_endian(2)};
  static void count(const CountedFrame& frame, Rows& rows) {
    const NetworkHeader* ip = ip_of(frame);
    if (ip == nullptr) return;
    add(rows.touch(key_of(ip->dscp, ip->protocol, ip->address_size, ip->source, ip->address_size,
                          ip->dest, frame.packet.stack().back()),
                   frame.now),
        frame);
  }
  static std::uint32_t detail(const Rows::Key& /*key*/, const Rows::Entry& /*entry*/) { return 0; }
};

template <class What>
class TableOf : public CountingTable {
 public:
  explicit TableOf(std::size_t max_rows) : rows_(max_rows) {
    if constexpr (requires { What::prepare(rows_); }) What::prepare(rows_);
  }

  void count(const CountedFrame& frame) override {
    if (frame.good || kCountsErrors) What::count(frame, rows_);
  }

  void rows_after(const Key* start, std::size_t limit, std::vector<Row>& out) override {
    Bytes first;
    if (start != nullptr) (void)encode_key(What::kKey, *start, first);
    rows_.for_each_after(
        start != nullptr ? &first : nullptr, limit,
        [&out](const Bytes& key, const auto& entry) { out.push_back(row_of(key, entry)); });
  }

  std::optional<Row> row_at(const Key& key) override {
    Bytes bytes;
    const auto* entry = encode_key(What::kKey, key, bytes) ? rows_.find(bytes) : nullptr;
    return entry != nullptr ? std::optional(row_of(bytes, *entry)) : std::nullopt;
  }

  [[nodiscard]] TableUse use() const override { return rows_.use(); }

 private:
  using Bytes = typename What::Rows::Key;
  static constexpr bool kCountsErrors = requires { What::kErrors; }
  || requires { What::kOutErrors; };

  static Row row_of(const Bytes& key, const typename What::Rows::Entry& entry) {
    Row row;
    decode_key(What::kKey, key, row.key);
    std::ranges::copy(entry.counters, row.counters.begin());
    row.detail = What::detail(key, entry);
    return row;
  }

  typename What::Rows rows_;
};

template <class What>
std::unique_ptr<CountingTable> make(std::size_t max_rows) {
  return std::make_unique<TableOf<What>>(max_rows);
}

}  // namespace

std::unique_ptr<CountingTable> make_counting_table(Table table, std::size_t max_rows) {
  using Make = std::unique_ptr<CountingTable> (*)(std::size_t);
  static constexpr std::array<Make, kTableCount> kMake = {
      // in the order of Table
      make<Host>, make<Matrix>,  make<Pdist>,   make<NlHost>, make<NlMatrix>, make<Vlan>,
      make<Prio>, make<DsStats>, make<DsPdist>, make<DsHost>, make<DsMatrix>};
  return kMake[static_cast<std::size_t>(table)](max_rows);
}

}  // namespace minitapd
