#include "agent_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace minitapd::testing {

namespace {

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string read_line(int fd) {
  std::string line;
  char c = 0;
  while (::read(fd, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

}  // namespace

AgentProcess::AgentProcess(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MINITAPD_BINARY);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return;
  output_ = UniqueFd(pipe[0]);
  UniqueFd write_end(pipe[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDOUT_FILENO);
  if (::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
  posix_spawn_file_actions_destroy(&actions);
  write_end = UniqueFd();  // so that the end of the agent ends the reading
  const std::string line = read_line(output_.get());
  if (line.starts_with("minitapd: serving ")) {
    port_ = static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(' '))));
  }
}

AgentProcess::~AgentProcess() {
  if (pid_ > 0) {
    signal(SIGKILL);
    (void)wait();
  }
}

Client AgentProcess::connect(std::chrono::milliseconds timeout) const {
  sockaddr_in address = loopback(port_);
  int fd = RPC_ANYSOCK;
  Client client(clnttcp_create(&address, TAPD_PROGRAM, TAPD_VERSION, &fd, 0, 0));
  if (client) {
    timeval limit{.tv_sec = timeout.count() / 1000, .tv_usec = timeout.count() % 1000 * 1000};
    clnt_control(client.get(), CLSET_TIMEOUT, reinterpret_cast<char*>(&limit));
  }
  return client;
}

UniqueFd AgentProcess::connect_socket() const {
  UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port_);
  const timeval limit{.tv_sec = 10, .tv_usec = 0};
  (void)::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return fd;
}

void AgentProcess::signal(int number) const {
  (void)::kill(pid_, number);
}

int AgentProcess::wait() {
  int status = 0;
  const pid_t ended = ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TempFile::TempFile(const std::string& name, const std::string& text)
    : path_(::testing::TempDir() + std::to_string(::getpid()) + "_" + name) {
  std::ofstream(path_) << text;
}

TempFile::~TempFile() {
  std::filesystem::remove(path_);
}

std::string TempFile::text() const {
  std::ifstream file(path_);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace minitapd::testing
