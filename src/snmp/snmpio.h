// The transport: one agent, one UDP socket, one request at a time (RFC 3417, IPv4).
//
// The state is global and the time-out is SIGALRM, so all of this belongs to one thread, the one
// that SIGALRM reaches. Nothing is ever sent again by itself.
#pragma once

#include <netdb.h>
#include <netinet/in.h>

#include <csignal>
#include <cstdint>

#include "snmp/make_lib.h"

namespace tally {

// The state, in a namespace of its own: names as short as these would hide behind, or warn about,
// the parameters of every file that includes this one.
namespace snmpio {
extern int fd;                   // the socket, -1 when closed
extern unsigned char* packet;    // what was received, zn_pkt_size bytes of room, owned
extern std::int32_t packet_len;  // result of the last receive
extern char imagename[128];      // program name, for the messages
extern volatile std::sig_atomic_t received_state;  // 1 once the alarm has rung
extern unsigned seconds;                           // how long to wait for a response; 0: no limit
extern hostent* hp;                                // last host lookup, the resolver's own storage
extern sockaddr_in agent_address;
}  // namespace snmpio

// InitializeIO opens the socket and resolves `host`, a dotted address or a name; the port is
// GetSNMPPort's. It takes over SIGALRM. Without a socket or with an unknown host it logs and ends
// the process with status -1. Set zn_pkt_size before. CloseUp first to do it again.
void InitializeIO(const char* progname, const char* host);

// SendToIO sends `length` bytes to the agent in one datagram through `socket_fd`. Returns 1, or 0
// when they are more than zn_pkt_size or the system refused (logs).
[[nodiscard]] int SendToIO(int socket_fd, const unsigned char* bytes, std::int32_t length);

// GetResponse waits up to `seconds` for a datagram, whoever sends it. Returns 2 when `packet` has
// at least one byte (a datagram longer than zn_pkt_size is cut), or 1 when nothing came, the
// datagram was empty, or the system refused.
[[nodiscard]] int GetResponse();

// TimeOut is the work of the SIGALRM handler: it sets `received_state` and returns 0.
int TimeOut();

// CloseUp closes the socket and frees the buffer.
void CloseUp();

// OpenTrapSocket returns a UDP socket bound to GetSNMPTrapPort on all addresses, for the caller to
// receive from and close, or -1 (logs).
[[nodiscard]] int OpenTrapSocket();

}  // namespace tally
