// The supervisor's answers to a refresh and a sample of one of its kinds, which the first byte
// selects. Each answer has a length of 16 bits in front. With the top bit of the length set, those
// bytes are the whole datagram; else they are the bindings of a well-formed response.
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

#include "daemon/base/collection_types.h"
#include "daemon/supervisor_kinds.h"
#include "property.h"
#include "snmp/snmpio.h"
#include "supervisor/ifstats.h"
#include "supervisor/supvlan.h"

namespace tally {
namespace {

using Bytes = std::vector<std::uint8_t>;

Span input;      // what is left of it
Bytes datagram;  // the answer to the last request

void prepend_head(Bytes& content, std::uint8_t tag) {
  const std::size_t size = content.size();
  const std::uint8_t head[] = {tag, 0x82, static_cast<std::uint8_t>(size >> 8),
                               static_cast<std::uint8_t>(size)};
  content.insert(content.begin(), std::begin(head), std::end(head));
}

// A request begins with 30 82 and a length, the version, and the community, as short forms.
void answer(Span request) {
  const std::size_t length = take_word(input);
  const Span bytes = take(input, length & 0x7fff);
  datagram.assign(bytes.begin(), bytes.end());
  if (length >= 0x8000 || bytes.empty()) return;
  const auto skip_head = [&](std::size_t at) { return at + (request[at + 1] == 0x82 ? 4 : 2); };
  const std::size_t version = skip_head(0);
  const std::size_t pdu = version + 3 + 2 + request[version + 4];
  const std::size_t id = skip_head(pdu);
  prepend_head(datagram, 0x30);
  Bytes fields(request.begin() + static_cast<std::ptrdiff_t>(id),
               request.begin() + static_cast<std::ptrdiff_t>(id + 2 + request[id + 1]));
  fields.insert(fields.end(), {2, 1, 0, 2, 1, 0});
  datagram.insert(datagram.begin(), fields.begin(), fields.end());
  prepend_head(datagram, 0xa2);
  datagram.insert(datagram.begin(), request.begin() + static_cast<std::ptrdiff_t>(version),
                  request.begin() + static_cast<std::ptrdiff_t>(pdu));
  prepend_head(datagram, 0x30);
}

void check_kind(std::uint32_t type) {
  static const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
  [[maybe_unused]] static const bool ready = (InitializeIO("fuzz", "127.0.0.1"), true);
  SupervisorKind& kind = supervisor_kind(type);
  kind.initialise();
  kind.refresh_rows();
  demand(kind.row_count <= 65536, "a bounded table");
  RecordCache cache;
  filebuf_init(cache, sink);
  if (type == kSupVlan) demand(supvlan_upload(cache) == 1, "a sample");
  if (type == kIfStats) demand(ifstats_upload(cache) == 1, "a sample");
  if (type == kEtherStats) kind.poll(100, 40);
  kind.clean_up();
}

}  // namespace
}  // namespace tally

extern "C" {
// In place of the system's: a supervisor that answers with the input, and a log that nobody reads.
int connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*size*/) {
  return -1;
}
ssize_t sendto(int /*fd*/, const void* bytes, std::size_t size, int /*flags*/,
               const sockaddr* /*to*/, socklen_t /*length*/) {
  tally::answer({static_cast<const std::uint8_t*>(bytes), size});
  return static_cast<ssize_t>(size);
}
ssize_t recvfrom(int /*fd*/, void* to, std::size_t room, int /*flags*/, sockaddr* /*from*/,
                 socklen_t* /*length*/) {
  const std::size_t size = std::min(room, tally::datagram.size());
  std::copy_n(tally::datagram.begin(), size, static_cast<std::uint8_t*>(to));  // maybe nothing
  tally::datagram.clear();
  return static_cast<ssize_t>(size);
}
unsigned alarm(unsigned /*seconds*/) noexcept {
  return 0;
}
void syslog(int /*priority*/, const char* /*format*/, ...) {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  tally::input = Span(data + 1, size - 1);
  tally::check_kind(tally::kEtherStats + data[0] % 3);
  return 0;
}
}
