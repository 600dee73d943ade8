#include "bench/stock_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>

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

}  // namespace tally::bench
