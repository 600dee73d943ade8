// What the main thread reads. The first byte selects it.
//
// 0: settings, as values of the databases and as lines of the text file. 1: the pipe; what the
// registry then holds is what a plain reading of the messages says. Others: the supervisor's
// answers to a refresh and a sample of one kind, each with a length of 16 bits in front. With the
// top bit of the length set, those bytes are the whole datagram; else they are the bindings of a
// well-formed response.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "daemon/base/collection_types.h"
#include "daemon/base/settings.h"
#include "daemon/messages.h"
#include "daemon/supervisor_kinds.h"
#include "property.h"
#include "snmp/snmpio.h"
#include "supervisor/etherstats.h"
#include "supervisor/ifstats.h"
#include "supervisor/supclient.h"
#include "supervisor/supvlan.h"

namespace tally {
namespace {

using Bytes = std::vector<std::uint8_t>;

Span input;      // what is left of it
Bytes datagram;  // the answer to the last request
int not_found;   // messages for collections that do not exist, as logged
int pipe_end = -1;

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

// A file that settings readers find good; what they then read comes from the input.
constexpr char kSettings[] = "/proc/self/exe";

void check_settings() {
  const Span all = input;
  const Preferences preferences = read_preferences(kSettings);
  demand(preferences.refresh.has_value() || preferences.interval == 0,
         "no interval out of nothing");
  const SupervisorSettings settings = read_supervisor_settings(kSettings, all.size() % 9);
  for (const auto& text : {settings.address, settings.community}) {
    demand(!text || (text->size() <= kMaxNmpText && text->find('\0') == std::string::npos),
           "a text that fits");
  }
  for (const KindSetting& kind : settings.kinds) {
    std::string start = kind.value.value_or("").substr(0, 7);
    std::ranges::transform(start, start.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    demand(kind.disabled() == (!kind.offered || start == "disable"), "disabled as it says");
  }
  input = all;
  const auto target = read_target_id(kSettings);
  const std::string_view text(reinterpret_cast<const char*>(all.data()), all.size());
  demand(!target || text.find("QOR_TARGET_ID=") != std::string_view::npos,
         "no target unless named");
}

// Reads the pipe as the main loop does, and keeps a registry of its own.
void check_pipe() {
  static ThreadEntry poll_task;
  static Registry& registry = *new Registry(poll_task);
  etherstats_enabled = supvlan_enabled = ifstats_enabled = false;
  ControlPipe pipe;
  demand(pipe.make(), "a pipe");
  const Span bytes = take(input, 100);  // eight messages and a torn one
  demand(write(pipe_end, bytes.data(), bytes.size()) == std::ssize(bytes), "room in the pipe");
  input = {};
  std::set<std::pair<std::uint32_t, std::uint32_t>> known;
  int unknown = 0;
  not_found = 0;
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(ControlMessage)) {
    ControlMessage message;
    const auto got = pipe.read(message);
    const bool whole = bytes.size() - at >= sizeof message;
    demand(got == (whole ? ControlPipe::Read::message : ControlPipe::Read::skipped),
           "whole messages, and no others");
    if (!whole) break;
    demand(std::memcmp(&message, bytes.data() + at, sizeof message) == 0, "as they were written");
    if (message.type == 0 || message.type > kLastMessageType) continue;
    demand(handle_message(registry, message), "only terminate ends it");
    const auto [type, collection, index] = message;
    if (collection > kDsMatrix) continue;
    if (type == 3 && collection < kDsMatrix) known.insert({collection, index});
    if ((type == 2 && collection < kDsMatrix) || type == 4) {
      if (!known.contains({collection, index})) ++unknown;
    }
    if (type == 4) known.erase({collection, index});
  }
  demand(unknown == not_found, "it knows what was created and not destroyed");
  registry.free_all();
  close(pipe_end);
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
// In place of the system's: databases, a text file and a pipe that hold the input, and a supervisor
// that answers with it.
GDBM_FILE gdbm_open(const char* /*path*/, int /*block*/, int /*flags*/, int /*mode*/,
                    void (* /*fatal*/)(const char*)) {
  static int opened;
  return reinterpret_cast<GDBM_FILE>(&opened);
}
int gdbm_close(GDBM_FILE /*file*/) {
  return 0;
}
datum gdbm_fetch(GDBM_FILE /*file*/, datum /*key*/) {
  const std::size_t length = tally::input.size() < 2 ? 0x8000 : take_word(tally::input);
  if (length >= 0x8000) return {nullptr, 0};
  const Span value = take(tally::input, length);
  char* const bytes = static_cast<char*>(std::malloc(value.size() + 1));
  std::copy(value.begin(), value.end(), bytes);
  return {bytes, static_cast<int>(value.size())};
}
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
  if (std::strcmp(path, tally::kSettings) != 0) return __real_fopen(path, mode);
  return fmemopen(const_cast<std::uint8_t*>(tally::input.data()), tally::input.size(), "r");
}
int mkfifo(const char* /*path*/, mode_t /*mode*/) noexcept {
  return 0;
}
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  if ((flags & O_RDWR) == 0 || (flags & O_CREAT) != 0) {
    std::va_list more;
    va_start(more, flags);
    const int mode = va_arg(more, int);
    va_end(more);
    return __real_open(path, flags, mode);
  }
  int ends[2];
  demand(pipe2(ends, O_NONBLOCK | O_CLOEXEC) == 0, "a pipe");
  tally::pipe_end = ends[1];
  return ends[0];
}
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
void syslog(int /*priority*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  if (std::strcmp(format, "%s") == 0 &&
      std::strstr(va_arg(arguments, const char*), "non-existent")) {
    ++tally::not_found;
  }
  va_end(arguments);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tally;
  if (size == 0) return 0;
  input = Span(data + 1, size - 1);
  switch (const unsigned what = data[0] % 5) {
    case 0:
      check_settings();
      break;
    case 1:
      check_pipe();
      break;
    default:
      check_kind(kEtherStats + what - 2);
  }
  return 0;
}
}
