#include "bench/stock_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tally::bench {

ClientHandle connect_stock(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int descriptor = RPC_ANYSOCK;
  ClientHandle client(clnttcp_create(&address, TAPD_PROGRAM, TAPD_VERSION, &descriptor, 0, 0));
  if (!client) throw std::runtime_error(clnt_spcreateerror("canned agent"));
  return client;
}

void next_epoch(CLIENT& client) {
  int ignored = 0;
  if (agent_null_1(nullptr, &ignored, &client) != RPC_SUCCESS) {
    throw std::runtime_error("agent_null failed");
  }
}

std::uint32_t agent_up_time(CLIENT& client) {
  tapd_system_info info{};
  if (agent_system_info_1(nullptr, &info, &client) != RPC_SUCCESS) {
    throw std::runtime_error("agent_system_info failed");
  }
  const std::uint32_t up_time = info.up_time;
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_system_info), &info);
  return up_time;
}

namespace {

// An address of the last reply, kept for the next key.
class KeptAddress {
 public:
  void keep(const tapd_bytes& address, tapd_bytes& in_key) {
    bytes_.assign(address.tapd_bytes_val, address.tapd_bytes_val + address.tapd_bytes_len);
    in_key = {static_cast<u_int>(bytes_.size()), bytes_.data()};
  }

 private:
  std::vector<u_char> bytes_;
};

// Fetches batches until one is empty; go_on(row, key) makes the key of what follows a row.
template <class Key, class Rows, class GoOn>
std::uint64_t walk_batches(CLIENT& client, clnt_stat (*call)(Key*, Rows*, CLIENT*),
                           bool_t (*routine)(XDR*, Rows*), Key key, GoOn&& go_on) {
  std::uint64_t total = 0;
  for (;;) {
    Rows reply{};
    if (call(&key, &reply, &client) != RPC_SUCCESS) throw std::runtime_error("a row call failed");
    const u_int count = reply.rows.rows_len;
    if (count != 0) go_on(reply.rows.rows_val[count - 1], key);
    xdr_free(reinterpret_cast<xdrproc_t>(routine), &reply);
    if (count == 0) return total;
    total += count;
  }
}

std::uint64_t fetch_matrix(CLIENT& client, int index) {
  KeptAddress source;
  KeptAddress dest;
  return walk_batches(client, matrix_table_get_1, xdr_tapd_matrix_rows,
                      tapd_matrix_key{index, {}, {}, TAPD_BATCH, TAPD_MODE, 0},
                      [&](const tapd_matrix_row& row, tapd_matrix_key& key) {
                        source.keep(row.matrixSDSourceAddress, key.matrixSDSourceAddress);
                        dest.keep(row.matrixSDDestAddress, key.matrixSDDestAddress);
                      });
}

std::uint64_t fetch_nlhost(CLIENT& client, int index) {
  KeptAddress address;
  return walk_batches(client, nlhost_table_get_1, xdr_tapd_nlhost_rows,
                      tapd_nlhost_key{index, 0, 0, 0, {}, TAPD_MODE, 0, TAPD_BATCH},
                      [&](const tapd_nlhost_row& row, tapd_nlhost_key& key) {
                        key.protocolDirLocalIndex = row.protocolDirLocalIndex;
                        address.keep(row.nlHostAddress, key.nlHostAddress);
                      });
}

std::uint64_t fetch_nlmatrix(CLIENT& client, int index) {
  KeptAddress source;
  KeptAddress dest;
  return walk_batches(client, nlmatrix_table_get_1, xdr_tapd_nlmatrix_rows,
                      tapd_nlmatrix_key{index, 0, 0, 0, {}, {}, TAPD_MODE, 0, 0, TAPD_BATCH},
                      [&](const tapd_nlmatrix_row& row, tapd_nlmatrix_key& key) {
                        key.protocolDirLocalIndex = row.protocolDirLocalIndex;
                        source.keep(row.nlMatrixSDSourceAddress, key.nlMatrixSDSourceAddress);
                        dest.keep(row.nlMatrixSDDestAddress, key.nlMatrixSDDestAddress);
                      });
}

std::uint64_t fetch_dshost(CLIENT& client, int index) {
  tapd_dshost_key key{};
  key.dsmonHostCtlIndex = index;
  key.request = TAPD_REQUEST_NEXT;
  for (std::uint64_t total = 0;; ++total) {
    tapd_dshost_row_reply row{};
    if (dshost_table_get_1(&key, &row, &client) != RPC_SUCCESS) {
      throw std::runtime_error("dshost_table_get failed");
    }
    const bool end = row.status != 0;
    key.dsmonAggGroupIndex = row.dsmonAggGroupIndex;
    key.protocolDirLocalIndex = row.protocolDirLocalIndex;
    std::copy(std::begin(row.dsmonHostAddress), std::end(row.dsmonHostAddress),
              std::begin(key.dsmonHostAddress));
    key.address_word = row.address_word;
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_dshost_row_reply), &row);
    if (end) return total;
  }
}

}  // namespace

std::uint64_t fetch_and_free(CLIENT& client, TableKind kind, std::uint32_t index) {
  const auto number = static_cast<int>(index);
  switch (kind) {
    case TableKind::host:
      return walk_host_rows(client, index, [](std::span<const tapd_host_row>) {});
    case TableKind::matrix:
      return fetch_matrix(client, number);
    case TableKind::nlhost:
      return fetch_nlhost(client, number);
    case TableKind::nlmatrix:
      return fetch_nlmatrix(client, number);
    case TableKind::dshost:
      return fetch_dshost(client, number);
    case TableKind::pdist:
      break;
  }
  throw std::invalid_argument("no stock client for this table");
}

namespace {

constexpr u_int kRowSize = 96;

struct PassedRows {
  u_int count;
  u_char last_address[6];
};

// The result routine of fetch_bytes: passes over the rows where they lie in the stream's buffer.
bool_t pass_over(XDR* stream, PassedRows* rows) {
  if (xdr_u_int(stream, &rows->count) == FALSE) return FALSE;
  if (rows->count == 0) return TRUE;
  const auto* bytes = reinterpret_cast<const u_char*>(XDR_INLINE(stream, rows->count * kRowSize));
  if (bytes == nullptr) return FALSE;
  const u_char* last = bytes + std::size_t{rows->count - 1} * kRowSize;
  for (u_int i = 0; i < sizeof rows->last_address; ++i) rows->last_address[i] = last[11 + 4 * i];
  return TRUE;
}

}  // namespace

std::uint64_t fetch_bytes(CLIENT& client, std::uint32_t index) {
  PassedRows rows{};
  tapd_host_key key{static_cast<int>(index), {0, rows.last_address}, TAPD_BATCH, TAPD_MODE};
  std::uint64_t total = 0;
  do {
    if (clnt_call(&client, HOST_TABLE_GET, reinterpret_cast<xdrproc_t>(xdr_tapd_host_key), &key,
                  reinterpret_cast<xdrproc_t>(pass_over), &rows, (timeval{25, 0})) != RPC_SUCCESS) {
      throw std::runtime_error("host_table_get failed");
    }
    key.hostAddress.tapd_bytes_len = sizeof rows.last_address;
    total += rows.count;
  } while (rows.count != 0);
  return total;
}

}  // namespace tally::bench
