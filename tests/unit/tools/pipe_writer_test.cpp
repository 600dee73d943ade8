#include "pipe_writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <thread>
#include <vector>

#include "files/unique_fd.h"
#include "temporary_directory.h"

namespace tally {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr ControlMessage kMessage{3, 2, 0x01020304};
constexpr unsigned char kBytes[] = {3, 0, 0, 0, 2, 0, 0, 0, 4, 3, 2, 1};

class PipeWriter : public testing::Test {
 protected:
  PipeWriter() {
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
  }

  UniqueFd reader() const { return UniqueFd(open(pipe_.c_str(), O_RDONLY | O_NONBLOCK)); }

  // fill leaves room for less than a message.
  void fill() const {
    const UniqueFd writer(open(pipe_.c_str(), O_WRONLY | O_NONBLOCK));
    ASSERT_TRUE(writer);
    const char byte = 'x';
    const std::vector<char> block(4096, byte);
    while (write(writer.get(), block.data(), block.size()) > 0) {
    }
    while (write(writer.get(), &byte, 1) > 0) {
    }
  }

  static std::vector<unsigned char> read_all(int fd) {
    std::vector<unsigned char> bytes(1 << 20);
    const ssize_t got = read(fd, bytes.data(), bytes.size());
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }

  TemporaryDirectory directory_;
  std::string pipe_ = directory_ / "pipe";
};

TEST_F(PipeWriter, SendsTwelveBytesAtATime) {
  const UniqueFd fd = reader();
  EXPECT_EQ(send_message(pipe_, kMessage, milliseconds{0}), "");
  EXPECT_THAT(read_all(fd.get()), testing::ElementsAreArray(kBytes));
  EXPECT_EQ(send_message(pipe_, kMessage, milliseconds{0}), "");
  EXPECT_EQ(send_message(pipe_, kMessage, milliseconds{0}), "");
  EXPECT_EQ(read_all(fd.get()).size(), 24U);
}

TEST_F(PipeWriter, NeverBlocksAndTellsWhy) {
  std::ofstream(directory_ / "file") << "precious";
  const struct {
    std::string path;
    const char* error;
  } cases[] = {
      {pipe_, "no daemon is reading"},        {directory_ / "absent", "there is no control pipe"},
      {directory_ / "file", "is not a FIFO"}, {"/dev/null", "is not a FIFO"},
      {directory_.path(), "cannot open"},
  };
  for (const auto& each : cases) {
    EXPECT_THAT(send_message(each.path, kMessage, milliseconds{0}), HasSubstr(each.error));
  }
  std::ifstream file(directory_ / "file");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "precious");
}

TEST_F(PipeWriter, GivesUpOnAPipeThatStaysFull) {
  const UniqueFd fd = reader();
  fill();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(send_message(pipe_, kMessage, milliseconds{100}), HasSubstr("is full"));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, milliseconds{100});
  EXPECT_LT(took, std::chrono::seconds{5});
}

TEST_F(PipeWriter, GetsThroughOnceTheReaderReads) {
  const UniqueFd fd = reader();
  fill();
  auto sent = std::async(std::launch::async,
                         [&] { return send_message(pipe_, kMessage, std::chrono::seconds{30}); });
  std::vector<unsigned char> bytes;
  while (sent.wait_for(milliseconds{10}) != std::future_status::ready) {
    const auto more = read_all(fd.get());
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  EXPECT_EQ(sent.get(), "");
  const auto rest = read_all(fd.get());
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  ASSERT_GE(bytes.size(), sizeof kBytes);
  EXPECT_THAT(std::vector<unsigned char>(bytes.end() - sizeof kBytes, bytes.end()),
              testing::ElementsAreArray(kBytes));
}

TEST_F(PipeWriter, SurvivesAReaderThatGoes) {
  UniqueFd fd = reader();
  fill();
  auto sent = std::async(std::launch::async,
                         [&] { return send_message(pipe_, kMessage, std::chrono::seconds{30}); });
  std::this_thread::sleep_for(
      milliseconds{50});  // it has opened the pipe by now, or finds it closed
  fd.reset();
  EXPECT_THAT(sent.get(), HasSubstr("no daemon is reading"));
}

}  // namespace
}  // namespace tally
