#include "agent/type_samples.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "agent/tapd_agent.h"
#include "support/temporary_directory.h"

namespace tally {

ByteList byte_list(const std::string& bytes) {
  return ByteList(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}
tapd_bytes wire_bytes(const std::string& bytes) {
  return {static_cast<u_int>(bytes.size()),
          const_cast<u_char*>(reinterpret_cast<const u_char*>(bytes.data()))};
}
std::string mac_address(std::uint32_t n) {
  return {'\x02',
          '\xf0',
          static_cast<char>(n >> 24),
          static_cast<char>(n >> 16),
          static_cast<char>(n >> 8),
          static_cast<char>(n)};
}
std::string doubles(std::initializer_list<double> values) {
  std::string bytes;
  for (const double value : values) bytes += bytes_of(value);
  return bytes;
}

namespace {

std::uint64_t counter(std::uint32_t n, std::uint32_t k) {
  return (std::uint64_t{n} + 1) * (k + 1) * 0x9e37'79b9'7f4a'7c15;
}

// Network addresses are IPv4 and IPv6 by turns.
std::string network_address(std::uint32_t n) {
  return (n % 2 == 0 ? std::string("\x0a\xff") : std::string(14, '\xfe')) +
         static_cast<char>(n >> 8) + static_cast<char>(n);
}
std::string field_of(const std::string& address) {
  std::string field = bytes_of(static_cast<std::uint32_t>(address.size())) + address;
  field.resize(20, '\0');
  return field;
}

// 20 bytes of which only the last four tell the rows apart.
std::string long_address(char fill, std::uint32_t n) {
  return std::string(16, fill) + mac_address(n).substr(2);
}
template <class Field>
void fill_vector(Field& field, const std::string& bytes) {
  std::copy(bytes.begin(), bytes.end(), std::begin(field));
}
ByteVector20 byte_vector(const std::string& bytes) {
  ByteVector20 vector;
  fill_vector(vector, bytes);
  return vector;
}

std::int32_t as_int(std::uint32_t n) {
  return static_cast<std::int32_t>(n);
}

// For each type: what travels for row n, its key, and the request for what follows it.
struct Host {
  using Wire = HostRowList;
  static HostRow row(const Run& run, std::uint32_t n) {
    return {1,
            byte_list(mac_address(n)),
            9,
            run.index,
            counter(n, 0),
            counter(n, 1),
            counter(n, 2),
            counter(n, 3),
            counter(n, 4),
            counter(n, 5),
            counter(n, 6)};
  }
  static std::string key(std::uint32_t n) { return mac_address(n); }
  static ScriptedClient::Call request(int n) {
    const std::string after = n < 0 ? "" : key(static_cast<std::uint32_t>(n));
    return {11, theirs<HostTableKey>({kIndex, wire_bytes(after), 100, 3})};
  }
};

struct Matrix {
  using Wire = MatrixRowList;
  static MatrixRow row(const Run& run, std::uint32_t n) {
    return {1,
            byte_list(mac_address(n)),
            byte_list(mac_address(n + 1)),
            run.index,
            counter(n, 0),
            counter(n, 1),
            counter(n, 2)};
  }
  static std::string key(std::uint32_t n) { return mac_address(n) + mac_address(n + 1); }
  static ScriptedClient::Call request(int n) {
    const std::string both = n < 0 ? "" : key(static_cast<std::uint32_t>(n));
    const std::string source = both.substr(0, both.size() / 2);
    const std::string dest = both.substr(both.size() / 2);
    return {18, theirs<MatrixTableKey>({kIndex, wire_bytes(source), wire_bytes(dest), 100, 3, 0})};
  }
};

struct Pdist {
  using Wire = PdistRowList;
  static PdistRow row(const Run& run, std::uint32_t n) {
    return {1, run.index, as_int(n + 1), counter(n, 0), counter(n, 1), 77};
  }
  static std::string key(std::uint32_t n) { return bytes_of(77) + bytes_of(n + 1); }
  static ScriptedClient::Call request(int n) {
    return {26, theirs<PdistTableKey>({kIndex, n + 1, 3, 100})};
  }
};

struct NlHost {
  using Wire = NlHostRowList;
  static NlHostRow row(const Run& run, std::uint32_t n) {
    return {1,
            run.time_mark,
            byte_list(network_address(n)),
            counter(n, 0),
            counter(n, 1),
            counter(n, 2),
            counter(n, 3),
            counter(n, 4),
            88,
            run.index,
            300,
            99};
  }
  static std::string key(std::uint32_t n) { return bytes_of(300) + field_of(network_address(n)); }
  static ScriptedClient::Call request(int n) {
    const std::string after = n < 0 ? "" : network_address(static_cast<std::uint32_t>(n));
    return {34,
            theirs<NlHostTableKey>({kIndex, 0, n < 0 ? 0 : 300, 0, wire_bytes(after), 3, 0, 100})};
  }
};

struct NlMatrix {
  using Wire = NlMatrixRowList;
  static NlMatrixRow row(const Run& run, std::uint32_t n) {
    return {1,
            run.time_mark,
            byte_list(network_address(n)),
            byte_list(network_address(n + 1)),
            counter(n, 0),
            counter(n, 1),
            88,
            run.index,
            as_int(n / 8 + 1),
            99};
  }
  static std::string key(std::uint32_t n) {
    return bytes_of(n / 8 + 1) + field_of(network_address(n)) + field_of(network_address(n + 1));
  }
  static ScriptedClient::Call request(int n) {
    const auto number = static_cast<std::uint32_t>(n);
    const std::string source = n < 0 ? "" : network_address(number);
    const std::string dest = n < 0 ? "" : network_address(number + 1);
    return {37, theirs<NlMatrixTableKey>({kIndex, 0, n < 0 ? 0 : n / 8 + 1, 0, wire_bytes(source),
                                          wire_bytes(dest), 3, 0, 0, 100})};
  }
};

struct Vlan {
  using Wire = VlanRowReply;
  static VlanRowReply row(const Run& run, std::uint32_t n) {
    return {0,  as_int(n + 1), counter(n, 0), counter(n, 1), counter(n, 2), counter(n, 3),
            88, run.index};
  }
  static std::string key(std::uint32_t n) { return bytes_of(n + 1); }
  static ScriptedClient::Call request(int n) {
    return {78, theirs<IndexedKey>({kIndex, n + 1, 2})};
  }
};

struct Prio {
  using Wire = PrioRowReply;
  static PrioRowReply row(const Run& run, std::uint32_t n) {
    return {0, as_int(n), counter(n, 0), counter(n, 1), run.index};
  }
  static std::string key(std::uint32_t n) { return bytes_of(n); }
  static ScriptedClient::Call request(int n) { return {81, theirs<IndexedKey>({kIndex, n, 2})}; }
};

struct DsStats {
  using Wire = DsStatsRowReply;
  static DsStatsRowReply row(const Run& run, std::uint32_t n) {
    return {0,
            n,
            static_cast<std::uint32_t>(run.index),
            counter(n, 0),
            counter(n, 1),
            counter(n, 2),
            counter(n, 3)};
  }
  static std::string key(std::uint32_t n) { return bytes_of(n); }
  // It begins with just group 0.
  static ScriptedClient::Call request(int n) {
    return {74, theirs<IndexedKey>({kIndex, n < 0 ? 0 : n, n < 0 ? 1 : 2})};
  }
};

struct DsPdist {
  using Wire = DsPdistRowReply;
  static DsPdistRowReply row(const Run& run, std::uint32_t n) {
    return {0,
            static_cast<std::uint32_t>(run.index),
            run.time_mark,
            n / 3,
            as_int(n + 1),
            counter(n, 0),
            counter(n, 1)};
  }
  static std::string key(std::uint32_t n) { return bytes_of(n / 3) + bytes_of(n + 1); }
  static ScriptedClient::Call request(int n) {
    const std::uint32_t group = n < 0 ? 0 : static_cast<std::uint32_t>(n) / 3;
    return {137, theirs<DsPdistKey>({kIndex, 0, group, n + 1, 2})};
  }
};

struct DsHost {
  using Wire = DsHostRowReply;
  static DsHostRowReply row(const Run& run, std::uint32_t n) {
    return {0,
            run.index,
            run.time_mark,
            n / 2,
            7,
            byte_vector(long_address('\xee', n)),
            -3,
            counter(n, 0),
            counter(n, 1),
            counter(n, 2),
            counter(n, 3)};
  }
  static std::string key(std::uint32_t n) {
    return bytes_of(n / 2) + bytes_of(7) + bytes_of(-3) + std::string(16, '\xee');
  }
  static ScriptedClient::Call request(int n) {
    tapd_dshost_key key{};
    key.dsmonHostCtlIndex = kIndex;
    key.request = 2;
    if (n >= 0) {
      key.dsmonAggGroupIndex = static_cast<u_int>(n) / 2;
      key.protocolDirLocalIndex = 7;
      fill_vector(key.dsmonHostAddress, long_address('\xee', static_cast<std::uint32_t>(n)));
      key.address_word = -3;
    }
    return {138, theirs<DsHostKey>(key)};
  }
};

struct DsMatrix {
  using Wire = DsMatrixRowReply;
  static DsMatrixRowReply row(const Run& run, std::uint32_t n) {
    return {0,
            run.index,
            run.time_mark,
            n / 2,
            7,
            byte_vector(long_address('\xaa', n)),
            byte_vector(long_address('\xbb', n * 3)),
            -11,
            22,
            -33,
            counter(n, 0),
            counter(n, 1)};
  }
  static std::string key(std::uint32_t n) {
    return bytes_of(n / 2) + bytes_of(7) + bytes_of(22) + std::string(16, '\xaa') + bytes_of(-33) +
           std::string(16, '\xbb') + bytes_of(-11);
  }
  static ScriptedClient::Call request(int n) {
    tapd_dsmatrix_key key{};
    key.dsmonMatrixCtlIndex = kIndex;
    key.request = 2;
    if (n >= 0) {
      key.dsmonAggGroupIndex = static_cast<u_int>(n) / 2;
      key.protocolDirLocalIndex = 7;
      fill_vector(key.source_address, long_address('\xaa', static_cast<std::uint32_t>(n)));
      fill_vector(key.dest_address, long_address('\xbb', static_cast<std::uint32_t>(n) * 3));
      key.key_word_1 = -11;
      key.key_word_2 = 22;
      key.key_word_3 = -33;
    }
    return {141, theirs<DsMatrixKey>(key)};
  }
};

template <class Type>
Bytes reply_of(const Batch& batch) {
  typename Type::Wire reply{};
  if constexpr (requires { reply.rows.next_row(); }) {
    for (const Run& run : batch) {
      for (std::uint32_t i = 0; i < run.count; ++i) {
        reply.rows.next_row() = Type::row(run, run.first + i);
      }
    }
  } else if (batch.empty()) {
    reply.status = 1;
  } else {
    reply = Type::row(batch.front(), batch.front().first);
  }
  return encode_bytes(xdr_wire<typename Type::Wire>, reply);
}

// Behind the counters: whether it is batched, whether its rows carry a time mark. Then the texts,
// which name other types in places.
#define WIRE(Type) reply_of<Type>, Type::key, Type::request
constexpr TypeSample kSamples[] = {
    {"host", kHost, 6, 7, true, false, "host_calc_delta: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "host_calc_rate: NULL pointer!",
     "host_calc_rate() found a 0-length interval.", "host_rpc_getnext: RPC failed",
     "host_upload() error 1.", "Unable to add active host collection.", WIRE(Host)},
    {"matrix", kMatrix, 12, 3, true, false, "matrix_calc_delta: NULL pointer!",
     "matrix_calc_delta() found a 0-length interval.", "matrix_calc_rate: NULL pointer!",
     "matrix_calc_rate() found a 0-length interval.", "matrix_rpc_getnext: RPC failed",
     "matrix_upload() error 1.", "Unable to add active matrix collection.", WIRE(Matrix)},
    {"pdist", kPdist, 8, 2, true, false, "pdistcalc_delta2: NULL pointer!",
     "pdist_calc_delta() found a 0-length interval.", "pdist_calc_rate: NULL pointer!",
     "pdist_calc_rate() found a 0-length interval.", "pdist_rpc_getnext: RPC failed",
     "pdist_upload() error 1.", "Unable to add active pdist collection.", WIRE(Pdist)},
    {"nlhost", kNlHost, 24, 5, true, true, "nlhost_calc_delta2: NULL pointer!",
     "nlhost_calc_delta() found a 0-length interval.", "nlhost_calc_rate: NULL pointer!",
     "nlhost_calc_rate() found a 0-length interval.", "nlhost_rpc_getnext: RPC failed",
     "nlhost_upload() error 1.", "Unable to add active nlhost collection.", WIRE(NlHost)},
    {"nlmatrix", kNlMatrix, 44, 2, true, true, "nlmatrixt_calc_delta: NULL pointer!",
     "nlmatrix_calc_delta() found a 0-length interval.", "nlmatrixt_calc_rate: NULL pointer!",
     "nlmatrix_calc_rate() found a 0-length interval.", "nlmatrix_rpc_getnext: RPC failed",
     "nlmatrix_upload() error 1.", "Unable to add active nlmatrix collection.", WIRE(NlMatrix)},
    {"vlan", kVlan, 4, 4, false, false, "pdistcalc_delta2: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "vlan_calc_rate: NULL pointer!",
     "vlan_calc_rate() found a 0-length interval.", "vlan_rpc_getnext: RPC failed",
     "pdist_upload() error 1.", "Unable to add active vlan collection.", WIRE(Vlan)},
    {"prio", kPrio, 4, 2, false, false, "pdistcalc_delta: NULL pointer!",
     "host_calc_delta() found a 0-length interval.", "prio_calc_rate: NULL pointer!",
     "prio_calc_rate() found a 0-length interval.", "prio_rpc_getnext: RPC failed",
     "prio_upload() error 1.", "Unable to add active prio collection.", WIRE(Prio)},
    {"dsstats", kDsStats, 4, 4, false, false, "nlhost_calc_delta: NULL pointer!",
     "dsstats_calc_delta() found a 0-length interval.", "dsstats_calc_rate: NULL pointer!",
     "dsstats_calc_rate() found a 0-length interval.", "dsstats_rpc_getnext: RPC failed",
     "dsstats_upload() error 1.", "Unable to add active dsstats collection.", WIRE(DsStats)},
    {"dspdist", kDsPdist, 8, 2, false, true, "nlhost_calc_delta2: NULL pointer!",
     "dspdist_calc_delta() found a 0-length interval.", "dspdist_calc_rate: NULL pointer!",
     "dspdist_calc_rate() found a 0-length interval.", "dspdist_rpc_getnext: RPC failed",
     "dspdist_upload() error 1.", "Unable to add active dspdist collection.", WIRE(DsPdist)},
    {"dshost", kDsHost, 28, 4, false, true, "nlhost_calc_delta: NULL pointer!",
     "dshost_calc_delta() found a 0-length interval.", "dshost_calc_rate: NULL pointer!",
     "dshost_calc_rate() found a 0-length interval.", "dshost_rpc_getnext: RPC failed",
     "dshost_upload() error 1.", "Unable to add active dshost collection.", WIRE(DsHost)},
    {"dsmatrix", kDsMatrix, 52, 2, false, true, "nlhost_calc_delta: NULL pointer!",
     "dsmatrix_calc_delta() found a 0-length interval.", "dsmatrix_calc_rate: NULL pointer!",
     "dsmatrix_calc_rate() found a 0-length interval.", "dsmatrix_rpc_getnext: RPC failed",
     "dsmatrix_upload() error 1.", nullptr, WIRE(DsMatrix)},
};
#undef WIRE

}  // namespace

std::span<const TypeSample> type_samples() {
  return kSamples;
}

const CollectionOps& TypeSample::ops() const {
  return agent_type_ops(type);
}

std::string TypeSample::record(std::uint32_t n) const {
  std::string bytes = key(n);
  for (std::uint32_t k = 0; k < counters; ++k) {
    // Through a type that holds all 64 bits, so that it is rounded once.
    bytes += bytes_of(static_cast<double>(static_cast<long double>(counter(n, k))));
  }
  return bytes;
}

std::vector<std::string> records_of(const TypeSample& sample, RowIterator& rows, std::size_t most) {
  std::vector<std::string> records;
  while (records.size() < most) {
    const unsigned char* record = sample.ops().rpc_getnext(rows);
    if (!record) break;
    records.emplace_back(reinterpret_cast<const char*>(record), sample.ops().record_size);
  }
  return records;
}

}  // namespace tally
