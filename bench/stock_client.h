// The stock client: rpcgen's stubs and decoder over libtirpc, as anybody would write it.
//
// Every peer that needs the agent's rows gets them here, so all pay the same for the fetch.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

#include "bench/sample_table.h"
#include "minitapd/tapd.h"

namespace tally::bench {

struct DestroyClient {
  void operator()(CLIENT* client) const { clnt_destroy(client); }
};
using ClientHandle = std::unique_ptr<CLIENT, DestroyClient>;

// connect_stock returns a client of the agent at 127.0.0.1:port. Throws when it is not there.
ClientHandle connect_stock(std::uint16_t port);

// next_epoch moves the canned agent's counters on, with a null call. Throws when it fails.
void next_epoch(CLIENT& client);

// agent_up_time returns the agent's up-time.
std::uint32_t agent_up_time(CLIENT& client);

// walk_host_rows fetches the host table of a control index in batches of 100, hands each batch to
// `use` and frees it. Returns the number of rows. Throws when a call fails.
template <class Use>
std::uint64_t walk_host_rows(CLIENT& client, std::uint32_t index, Use&& use) {
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
    const std::span<const tapd_host_row> rows(reply.rows.rows_val, reply.rows.rows_len);
    if (!rows.empty()) {
      use(rows);
      const auto& last = rows.back().hostAddress;
      after.assign(last.tapd_bytes_val, last.tapd_bytes_val + last.tapd_bytes_len);
    }
    const bool end = rows.empty();
    total += rows.size();
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_host_rows), &reply);
    if (end) return total;
  }
}

// fetch_and_free fetches a table of any kind but pdist and throws it away. Returns the number of
// rows.
std::uint64_t fetch_and_free(CLIENT& client, TableKind kind, std::uint32_t index);

// fetch_bytes fetches a host table and decodes nothing of it but the address to go on from: what
// the RPC library's transport costs. Rows must have 6-byte addresses. Returns the number of rows.
std::uint64_t fetch_bytes(CLIENT& client, std::uint32_t index);

}  // namespace tally::bench
