// An RMON agent that costs next to nothing, for measuring its clients.
//
// It serves one table whose rows lie ready in wire form; a reply is a 32-byte head and a piece of
// that table, sent in one call. It speaks just enough ONC RPC over TCP (RFC 5531): one fragment a
// record, no authentication, program 99999 version 1.
//
//   0            null; also moves every counter to its next epoch. The daemon makes this call
//   before
//                each pass, so counters advance from poll to poll, outside of what is timed.
//   1            system information
//   11, 34, 37   hosts, network hosts and network conversations, a hundred a call
//   138          DSMON hosts, one a call
//
// All other procedures are refused as unavailable, what is malformed ends its connection.
#pragma once

#include <sys/socket.h>

#include "bench/sample_table.h"

namespace tally::bench {

// serve_table answers on a listening socket until its process ends. Throws when it cannot
// accept connections.
[[noreturn]] void serve_table(int listener, SampleTable& table);

}  // namespace tally::bench
