#include "snmp/snmpio.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "snmp/debug.h"
#include "snmp/getport.h"

namespace tally {

namespace snmpio {
int fd = -1;
unsigned char* packet = nullptr;
std::int32_t packet_len = 0;
char imagename[128] = "";
volatile std::sig_atomic_t received_state = 0;
unsigned seconds = 2;
hostent* hp = nullptr;
sockaddr_in agent_address = {};
}  // namespace snmpio

using namespace snmpio;

namespace {

std::int32_t packet_room = 0;  // bytes of `packet`; zn_pkt_size may have been raised since
unsigned limited_for = 0;      // the `seconds` that the socket's own time-out was set for

struct FreeBytes {
  void operator()(unsigned char* bytes) const { std::free(bytes); }
};

extern "C" void on_alarm(int /*signal*/) {
  TimeOut();
}

// The alarm must end a receive that waits, so the call is not restarted after it.
void take_over_alarm() {
  struct sigaction action = {};
  action.sa_handler = on_alarm;
  sigemptyset(&action.sa_mask);
  sigaction(SIGALRM, &action, nullptr);
}

void resolve(const char* host) {
  agent_address = {};
  agent_address.sin_family = AF_INET;
  agent_address.sin_addr.s_addr = inet_addr(host);
  if (agent_address.sin_addr.s_addr != INADDR_NONE) return;
  hp = gethostbyname(host);
  if (hp == nullptr) {  // what is found has IPv4 addresses, at least one
    ZN_LOG(APERROR, "%s:  host unknown.\n", host);
    std::exit(-1);
  }
  std::memcpy(&agent_address.sin_addr, hp->h_addr_list[0], sizeof agent_address.sin_addr);
}

// A receive that starts after its alarm has rung would never end. The socket's own time-out, a
// second longer, ends it. A new socket has none, which is what 0 `seconds` ask for.
void set_receive_limit() {
  if (seconds == limited_for) return;
  timeval limit = {};
  if (seconds != 0) limit.tv_sec = static_cast<time_t>(seconds) + 1;
  if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0) limited_for = seconds;
}

}  // namespace

int TimeOut() {
  received_state = 1;
  return 0;
}

void InitializeIO(const char* progname, const char* host) {
  if (progname == nullptr) progname = "";
  if (host == nullptr) host = "";
  std::free(packet);
  packet_room = std::max<std::int32_t>(zn_pkt_size, 0);
  packet = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(packet_room)));
  if (packet == nullptr) packet_room = 0;
  const std::size_t name_length = strnlen(progname, sizeof imagename - 1);
  std::memcpy(imagename, progname, name_length);
  imagename[name_length] = '\0';

  take_over_alarm();
  fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    ZN_LOG(APERROR, "%s:  unable to connect to socket.\n", imagename);
    std::exit(-1);
  }
  limited_for = 0;
  resolve(host);
  agent_address.sin_port = htons(GetSNMPPort());
}

int SendToIO(int socket_fd, const unsigned char* bytes, std::int32_t length) {
  if (bytes == nullptr || length < 0 || length > zn_pkt_size) {
    ZN_LOG(APERROR, "%s:  send.\n", imagename);
    return 0;
  }
  // As long as the datagram only: for a block of zn_pkt_size bytes malloc tidies up all small ones.
  const auto size = static_cast<std::size_t>(length);
  const std::unique_ptr<unsigned char, FreeBytes> buffer(
      static_cast<unsigned char*>(std::malloc(size)));
  if (buffer == nullptr) {
    ZN_LOG(APWARN, "%s:  couldn't get send buffer\n", imagename);
    return 0;
  }
  std::memcpy(buffer.get(), bytes, size);
  ssize_t sent = 0;
  do {
    sent = sendto(socket_fd, buffer.get(), size, 0,
                  reinterpret_cast<const sockaddr*>(&agent_address), sizeof agent_address);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) {
    ZN_LOG(APERROR, "%s:  send.\n", imagename);
    return 0;
  }
  return 1;
}

int GetResponse() {
  const auto room = static_cast<std::size_t>(std::clamp(zn_pkt_size, 0, packet_room));
  set_receive_limit();
  received_state = 0;
  alarm(seconds);
  ssize_t received = 0;
  do {  // other signals than the alarm do not end the wait
    received = recvfrom(fd, packet, room, 0, nullptr, nullptr);
  } while (received < 0 && errno == EINTR && received_state == 0);
  alarm(0);
  packet_len = static_cast<std::int32_t>(received);
  return packet_len > 0 ? 2 : 1;
}

void CloseUp() {
  if (fd >= 0) close(fd);
  fd = -1;
  std::free(packet);
  packet = nullptr;
  packet_room = 0;
}

int OpenTrapSocket() {
  const int trap_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (trap_fd < 0) {
    ZN_LOG(APERROR, "%s: socket() failed\n", "OpenTrapSocket");
    return -1;
  }
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(GetSNMPTrapPort());
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  if (bind(trap_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
    ZN_LOG(APERROR, "traprcv:  bind");
    close(trap_fd);
    return -1;
  }
  return trap_fd;
}

}  // namespace tally
