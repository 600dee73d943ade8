// A poll of an agent collection: the sample before, as the daemon finds it on disk, and the bytes
// that the agent's connection brings, reply heads included.
//
// The input: the type; whether there is a sample before; its length, in 16 bits, and its bytes;
// then for each call a length, in 16 bits, and what arrives. With the top bit of the length set,
// those bytes stand alone; else they are the result in a well-formed reply. Calls always see their
// own transaction id.
//
// Whatever comes, the poll ends, a file that it calls finished holds whole records, no row of a
// whole sample before it is lost, and the rows of the delta file are among those of the new sample,
// in the same order.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "agent/rpc_client.h"
#include "agent/tapd_agent.h"
#include "files/file_lock.h"
#include "files/finished_file.h"
#include "files/poll_engine.h"
#include "property.h"
#include "support/xdr_streams.h"

namespace tally {
namespace {

// The agent's end of the connection, which exists only in memory: no system call for a call.
Span to_come;         // of the input
Bytes arriving;       // the answer to the last request
std::size_t arrived;  // octets of it

void answer(Span request) {
  const std::size_t length = take_word(to_come);
  const Span bytes = take(to_come, length & 0x7fff);
  arriving.clear();
  arrived = 0;
  if (length < 0x8000) {
    append_word(arriving, static_cast<std::uint32_t>(24 + bytes.size()) | 1U << 31);
    for (const std::uint32_t word : {0U, 1U, 0U, 0U, 0U, 0U}) append_word(arriving, word);
  }
  arriving.insert(arriving.end(), bytes.begin(), bytes.end());
  if (arriving.size() >= 8 && request.size() >= 8) {
    std::copy_n(request.begin() + 4, 4, arriving.begin() + 4);  // behind the record marks
  }
}

class InputAgent final : public Agent {
 public:
  bool connect() override { return (client_ = agent_connect(sockaddr_in{})) != nullptr; }
  bool check_connection() override { return true; }
  std::uint32_t up_time() override { return 7; }
  AgentClient& client() override { return *client_; }
  const CollectionOps& ops(std::uint32_t type) const override { return agent_type_ops(type); }

 private:
  std::unique_ptr<AgentClient> client_;
};

// A file that stays open, so that only what the daemon does with it costs time.
struct File {
  explicit File(const char* name)
      : path("/dev/shm/fuzz-" + std::to_string(getpid()) + name),
        fd(open_file(path.c_str(), O_RDWR | O_CREAT)) {}
  ~File() { unlink(path.c_str()); }

  void write(Span bytes) const {
    demand(ftruncate(fd.get(), 0) == 0 && pwrite(fd.get(), bytes.data(), bytes.size(), 0) ==
                                              static_cast<ssize_t>(bytes.size()),
           "room in /dev/shm");
  }
  Bytes read() const {
    static Bytes buffer(std::size_t{1} << 22);
    const ssize_t size = pread(fd.get(), buffer.data(), buffer.size(), 0);
    return {buffer.begin(), buffer.begin() + size};
  }

  const std::string path;
  const UniqueFd fd;
};

const File prev("prev");
const File last("last");
const File delta("delta");

// The rows of a finished file.
Span rows_of(const Bytes& file, std::uint32_t type, std::size_t record_size) {
  FileHeader header;
  demand(file.size() >= sizeof header, "a header");
  std::memcpy(&header, file.data(), sizeof header);
  demand(header.type == type && header.sample_time != 0, "of a finished file of the type");
  const Span rows = Span(file).subspan(sizeof header);
  demand(rows.size() % record_size == 0, "whole records");
  return rows;
}

void check_merge(const CollectionOps& ops, std::uint32_t type, std::size_t before) {
  const std::size_t size = ops.record_size;
  const Bytes sample = last.read();
  const Bytes rates = delta.read();
  Span rows = rows_of(sample, type, size);
  demand(before % size != 0 || rows.size() >= before, "no row of a whole sample is lost");
  for (Span left = rows_of(rates, type, size); !left.empty(); left = left.subspan(size)) {
    while (!rows.empty() && ops.compare(rows.data(), left.data()) != 0) rows = rows.subspan(size);
    demand(!rows.empty(), "each row of rates is of the sample, in its order");
    rows = rows.subspan(size);
  }
}

void check(Span input) {
  const Span head = take(input, 2);
  if (head.size() < 2) return;
  CollectionRecord collection;
  collection.type = head[0] % (kDsMatrix + 1);
  collection.index = 1;
  const Span before = take(input, take_word(input));
  to_come = input;
  InputAgent agent;
  demand(agent.connect(), "memory");
  const CollectionOps& ops = agent.ops(collection.type);
  if (head[1] % 2 == 0) {
    prev.write(before);
    if (poll_coll_delta(agent, collection, last.path.c_str(), prev.path.c_str(),
                        delta.path.c_str()) == 1) {
      check_merge(ops, collection.type, before.size() - sizeof(FileHeader));
    }
    return;
  }
  last.write({});
  RecordCache cache;
  filebuf_init(cache, last.fd.get());
  lseek(last.fd.get(), 0, SEEK_SET);
  if (begin_file(cache, {0, 7, 0, collection.type}) == 1 &&
      ops.upload(agent.client(), cache, collection.index, collection) == 1 &&
      finish_file(cache, 5) == 1) {
    (void)rows_of(last.read(), collection.type, ops.record_size);
  }
}

}  // namespace
}  // namespace tally

extern "C" {
// In place of the system's: a connection without a peer, streams with small buffers, and a log that
// nobody reads. Sockets and buffers of 64 KiB would take most of the time.
int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
  return 1 << 20;  // closing it does no harm
}
int setsockopt(int /*fd*/, int /*level*/, int /*name*/, const void* /*value*/,
               socklen_t /*size*/) noexcept {
  return 0;
}
void xdrrec_create(XDR* stream, u_int /*send*/, u_int /*receive*/, void* handle,
                   int (*read)(void*, void*, int), int (*write)(void*, void*, int)) {
  static const auto create =
      reinterpret_cast<decltype(&xdrrec_create)>(dlsym(RTLD_NEXT, "xdrrec_create"));
  create(stream, 512, 512, handle, read, write);
}
int connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*size*/) {
  return 0;
}
int bindresvport(int /*fd*/, sockaddr_in* /*address*/) noexcept {
  return 0;
}
ssize_t send(int /*fd*/, const void* bytes, std::size_t size, int /*flags*/) {
  tally::answer({static_cast<const std::uint8_t*>(bytes), size});
  return static_cast<ssize_t>(size);
}
ssize_t recv(int /*fd*/, void* to, std::size_t room, int /*flags*/) {
  const std::size_t size = std::min(room, tally::arriving.size() - tally::arrived);
  std::copy_n(tally::arriving.begin() + static_cast<std::ptrdiff_t>(tally::arrived), size,
              static_cast<std::uint8_t*>(to));  // maybe nothing
  tally::arrived += size;
  return static_cast<ssize_t>(size);
}
void syslog(int /*priority*/, const char* /*format*/, ...) {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tally::check({data, size});
  return 0;
}
}
