#include "bench/stock_client.h"

#include <netinet/in.h>

#include <stdexcept>
#include <vector>

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

std::uint64_t fetch_and_free(CLIENT& client, std::uint32_t index) {
  std::uint64_t total = 0;
  std::vector<u_char> after;
  for (;;) {
    tapd_host_key key{};
    key.hostIndex = static_cast<int>(index);
    key.hostAddress.tapd_bytes_len = static_cast<u_int>(after.size());
    key.hostAddress.tapd_bytes_val = after.data();
    key.count = TAPD_BATCH;
    key.mode = TAPD_MODE;
    tapd_host_rows reply{};
    if (host_table_get_1(&key, &reply, &client) != RPC_SUCCESS) {
      throw std::runtime_error("host_table_get failed");
    }
    const u_int count = reply.rows.rows_len;
    if (count > 0) {
      const tapd_bytes& last = reply.rows.rows_val[count - 1].hostAddress;
      after.assign(last.tapd_bytes_val, last.tapd_bytes_val + last.tapd_bytes_len);
    }
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_host_rows), &reply);
    if (count == 0) return total;
    total += count;
  }
}

}  // namespace tally::bench
