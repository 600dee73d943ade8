#include "system_faults.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <set>

namespace tally {
namespace {

std::set<void*>& blocks() {
  static std::set<void*> live;
  return live;
}

}  // namespace

SystemFaults& faults() {
  static SystemFaults current;
  return current;
}

void reset_faults() {
  faults() = {};
}

std::size_t live_blocks() {
  return blocks().size();
}

}  // namespace tally

using tally::faults;

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);
int __real_socket(int domain, int type, int protocol);
int __real_gettimeofday(timeval* now, void* zone);
tm* __real_localtime_r(const time_t* time, tm* result);
servent* __real_getservbyname(const char* name, const char* protocol);
ssize_t __real_sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to,
                      socklen_t to_size);
ssize_t __real_recvfrom(int fd, void* bytes, std::size_t size, int flags, sockaddr* from,
                        socklen_t* from_size);

void* __wrap_malloc(std::size_t size) {
  if (++faults().mallocs == faults().failing_malloc) return nullptr;
  void* const block = __real_malloc(size);
  tally::blocks().insert(block);
  return block;
}

// A compiler may turn malloc and zeroing into this.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (++faults().mallocs == faults().failing_malloc) return nullptr;
  void* const block = __real_calloc(count, size);
  tally::blocks().insert(block);
  return block;
}

void __wrap_free(void* block) {
  tally::blocks().erase(block);
  __real_free(block);
}

int __wrap_socket(int domain, int type, int protocol) {
  return faults().no_socket ? -1 : __real_socket(domain, type, protocol);
}

int __wrap_gettimeofday(timeval* now, void* zone) {
  errno = EFAULT;
  return faults().no_time ? -1 : __real_gettimeofday(now, zone);
}

tm* __wrap_localtime_r(const time_t* time, tm* result) {
  return faults().no_local_time ? nullptr : __real_localtime_r(time, result);
}

servent* __wrap_getservbyname(const char* name, const char* protocol) {
  return faults().no_services ? nullptr : __real_getservbyname(name, protocol);
}

ssize_t __wrap_sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to,
                      socklen_t to_size) {
  errno = ENETUNREACH;
  return faults().no_send ? -1 : __real_sendto(fd, bytes, size, flags, to, to_size);
}

ssize_t __wrap_recvfrom(int fd, void* bytes, std::size_t size, int flags, sockaddr* from,
                        socklen_t* from_size) {
  if (faults().before_receive) faults().before_receive();
  return __real_recvfrom(fd, bytes, size, flags, from, from_size);
}
}
