// The stock client: rpcgen's stubs and decoder over libtirpc, as anybody would write it.
#pragma once

#include <cstdint>
#include <memory>

#include "minitapd/tapd.h"

namespace tally::bench {

struct DestroyClient {
  void operator()(CLIENT* client) const { clnt_destroy(client); }
};
using ClientHandle = std::unique_ptr<CLIENT, DestroyClient>;

// connect_stock returns a client of the agent at 127.0.0.1:port. Throws when there is none.
ClientHandle connect_stock(std::uint16_t port);

// next_epoch moves the canned agent's counters on, with a null call. Throws when that fails.
void next_epoch(CLIENT& client);

// fetch_and_free fetches a host table in batches of 100 and throws it away. Returns the number of
// rows. Throws when a call fails.
std::uint64_t fetch_and_free(CLIENT& client, std::uint32_t index);

}  // namespace tally::bench
