// The agent's binary, running for a test, and a connection to it that speaks ONC RPC (RFC 5531)
// itself: tests say what is on the wire, whatever tapd.x makes of it.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "frames.h"
#include "minitapd/unique_fd.h"
#include "support/temporary_directory.h"
#include "support/xdr_streams.h"

namespace minitapd::testing {

using Words = std::vector<std::uint32_t>;  // XDR units; a 64-bit counter is two

// A call's record, in one fragment; its transaction id is 100.
inline Frame call_record(std::uint32_t procedure, const Words& argument = {},
                         std::uint32_t program = 99999, std::uint32_t version = 1) {
  Words words = {0x80000000, 100, 0, 2, program, version, procedure, 0, 0, 0, 0};
  words.insert(words.end(), argument.begin(), argument.end());
  words[0] += static_cast<std::uint32_t>(4 * (words.size() - 1));
  Frame record;
  for (const std::uint32_t word : words) tally::append_word(record, word);
  return record;
}

// write_file writes a file of the test program's own and returns its path.
inline std::string write_file(const std::string& name, const std::string& text) {
  static const tally::TemporaryDirectory directory;
  tally::write_file(directory / name, text);
  return directory / name;
}

class AgentProcess {
 public:
  // Starts the agent on a free port with these arguments, as in a shell, and waits until it serves.
  explicit AgentProcess(const std::string& arguments)
      // The shell tells its process id before it becomes the agent.
      : output_(::popen(("echo $$; exec " MINITAPD_BINARY " --port 0 " + arguments).c_str(), "r")) {
    EXPECT_EQ(std::fscanf(output_, "%d minitapd: serving 127.0.0.1 port %hu", &pid_, &port_), 2);
  }
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;
  ~AgentProcess() {
    if (pid_ > 0) (void)::kill(pid_, SIGKILL);
    (void)::pclose(output_);
  }

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  FILE* output_;
  pid_t pid_ = 0;
  std::uint16_t port_ = 0;
};

class Connection {
 public:
  explicit Connection(const AgentProcess& agent) {
    const sockaddr_in address{.sin_family = AF_INET,
                              .sin_port = htons(agent.port()),
                              .sin_addr = {htonl(INADDR_LOOPBACK)},
                              .sin_zero = {}};
    const timeval limit{.tv_sec = 5, .tv_usec = 0};
    (void)::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    EXPECT_EQ(::connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }

  void send(const Frame& bytes) const {
    EXPECT_GT(::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
  }

  // receive returns less than `size` bytes when the connection ends or nothing comes for 5 s.
  [[nodiscard]] Frame receive(std::size_t size) const {
    if (size == 0) return {};  // for which recv would wait, too
    Frame bytes(size);
    const ssize_t n = ::recv(fd_.get(), bytes.data(), size, MSG_WAITALL);
    bytes.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
    return bytes;
  }

  [[nodiscard]] bool at_end() const {
    char byte = 0;
    const ssize_t n = ::recv(fd_.get(), &byte, 1, 0);
    return n == 0 || (n < 0 && errno == ECONNRESET);
  }

  // receive_words reads the words that came; others are 0.
  [[nodiscard]] Words receive_words(std::size_t count) const {
    Words words(count);
    if (count > 0) (void)::recv(fd_.get(), words.data(), 4 * count, MSG_WAITALL);
    for (std::uint32_t& word : words) word = ntohl(word);
    return words;
  }

  // call returns the results, below 64 KiB, of a call that must be accepted.
  [[nodiscard]] Words call(std::uint32_t procedure, const Words& argument = {}) const {
    send(call_record(procedure, argument));
    const Words header = receive_words(7);
    EXPECT_EQ(header, (Words{header[0], 100, 1, 0, 0, 0, 0})) << "procedure " << procedure;
    return receive_words(std::max(header[0] & 0xffff, 24U) / 4 - 6);
  }

 private:
  UniqueFd fd_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

}  // namespace minitapd::testing
