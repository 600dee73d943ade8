#include "bench/stock_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstddef>

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

std::uint64_t fetch_and_free(CLIENT& client, std::uint32_t index) {
  return walk_host_rows(client, index, [](std::span<const tapd_host_row>) {});
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
