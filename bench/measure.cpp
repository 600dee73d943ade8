#include "bench/measure.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <nlohmann/json.hpp>
#include <system_error>

namespace tally::bench {
namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

double processor_time() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

using SocketCall = int (*)(int, const sockaddr*, socklen_t);

int socket_at(int type, std::uint16_t port, SocketCall call, const char* failure) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const int on = 1;
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail(failure);
  }
  return fd;
}

}  // namespace

void alternate(const std::vector<Contender>& contenders, std::uint32_t rounds) {
  nlohmann::ordered_json costs;
  for (std::uint32_t round = 0; round <= rounds; ++round) {
    for (const Contender& contender : contenders) {
      contender.prepare();
      const double begin = processor_time();
      contender.work();
      const double end = processor_time();
      if (round > 0) costs[contender.name].push_back(end - begin);
    }
  }
  std::printf("%s\n", costs.dump(1).c_str());
}

void pin_to(int cpu) {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  CPU_SET(cpu, &cpus);
  if (sched_setaffinity(0, sizeof cpus, &cpus) != 0) fail("cannot pin to one CPU");
}

ChildProcess::ChildProcess(const std::function<void()>& work) : process_(fork()) {
  if (process_ < 0) fail("cannot fork");
  if (process_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  try {
    work();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child process: %s\n", error.what());
  }
  _exit(EXIT_FAILURE);
}

ChildProcess::~ChildProcess() {
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

int serving_socket(int type, std::uint16_t port) {
  const int fd = socket_at(type, port, bind, "cannot bind a socket");
  if (type == SOCK_STREAM && listen(fd, 16) != 0) fail("cannot listen");
  return fd;
}

int connected_socket(int type, std::uint16_t port) {
  return socket_at(type, port, connect, "nobody answers");
}

}  // namespace tally::bench
