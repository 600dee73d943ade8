// The commands as people type them, against a data directory and a pipe of the test's own.
#include "tallyctl.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "daemon/collection_types.h"
#include "files/unique_fd.h"
#include "temporary_directory.h"

namespace tally {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Result {
  int code;
  std::string out;
  std::string words;
};

class Tallyctl : public testing::Test {
 protected:
  Tallyctl() { EXPECT_EQ(mkfifo(paths_.control_pipe.c_str(), 0600), 0); }

  int run_here(const std::string& line) const {
    std::vector<std::string> words{"tallyctl"};
    std::istringstream stream(line);
    for (std::string word; stream >> word;) words.push_back(word);
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    return tallyctl(static_cast<int>(argv.size()), argv.data(), paths_);
  }

  Result run(const std::string& line) const {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = run_here(line);
    std::string out = testing::internal::GetCapturedStdout();
    return {code, std::move(out), testing::internal::GetCapturedStderr()};
  }

  // write_delta makes a delta file of `rows` zeroed records, and cuts it to a length if asked to.
  void write_delta(const std::string& name, std::uint32_t type, std::size_t rows,
                   std::size_t record_size, std::size_t length = std::string::npos) const {
    std::string bytes(16 + rows * record_size, '\0');
    const FileHeader header{60, 0, static_cast<std::int32_t>(1'700'000'000 + rows), type};
    std::memcpy(bytes.data(), &header, sizeof header);
    std::ofstream(directory_ / name, std::ios::binary) << bytes.substr(0, length);
  }

  // messages returns what waits in the pipe, as words.
  std::vector<std::uint32_t> messages() const {
    std::vector<std::uint32_t> words(300);
    const ssize_t got = read(reader_.get(), words.data(), words.size() * sizeof words[0]);
    words.resize(got > 0 ? static_cast<std::size_t>(got) / sizeof words[0] : 0);
    return words;
  }

  void listen() { reader_.reset(open(paths_.control_pipe.c_str(), O_RDONLY | O_NONBLOCK)); }

  TemporaryDirectory directory_;
  ToolPaths paths_{directory_.path(), directory_ / "pipe"};
  UniqueFd reader_;
};

TEST_F(Tallyctl, SendsWhatWasAskedFor) {
  listen();
  const struct {
    const char* line;
    std::vector<std::uint32_t> message;
    const char* note;
  } cases[] = {
      {"create host 3", {3, kHost, 3}, ""},
      {"create 0 3", {3, kHost, 3}, ""},
      {"destroy dsmatrix 4294967295", {4, kDsMatrix, 4294967295}, ""},
      {"viewing etherstats", {2, kEtherStats, 0}, ""},
      {"viewing 14 0", {2, kIfStats, 0}, ""},
      {"create dsmatrix 1", {3, kDsMatrix, 1}, "note: the daemon only logs"},
      {"interval 15", {1, 15, 0}, ""},
      {"interval 14", {1, 14, 0}, "note: the daemon takes 15 s for 14 s"},
      {"interval -1", {1, 0xffffffff, 0}, "note: the daemon takes 15 s for -1 s"},
      {"interval 3601", {1, 3601, 0}, "note: the daemon takes 3600 s"},
      {"reload", {5, 0, 0}, ""},
      {"rescan", {6, 0, 0}, ""},
      {"stop", {0, 0, 0}, ""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.line);
    const Result result = run(each.line);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(messages(), each.message);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.words, *each.note == '\0' ? testing::Matcher<std::string>(IsEmpty())
                                                 : HasSubstr(each.note));
  }
}

TEST_F(Tallyctl, SendsNothingWhenNotUnderstood) {
  listen();
  for (const char* line : {"",
                           "frob",
                           "create",
                           "create host",
                           "create host x",
                           "create host -1",
                           "create host 1 2",
                           "create host 4294967296",
                           "create 11 1",
                           "create 15",
                           "create hosts 1",
                           "create etherstats 1",
                           "create vlan 1 vlan 2",
                           "interval",
                           "interval 1.5",
                           "interval 99999999999",
                           "stop now",
                           "viewing host 1 --keep 0",
                           "show host 1 --sort frob",
                           "watch host 1 --sort frob",
                           "watch host 1 --count 0",
                           "show host 1 --color always",
                           "show host 1 --wait -1"}) {
    SCOPED_TRACE(line);
    const Result result = run(line);
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.words, Not(IsEmpty()));
    EXPECT_THAT(messages(), IsEmpty());
  }
}

TEST_F(Tallyctl, HelpsOnStandardOutput) {
  for (const char* line : {"--help", "-h", "show --help", "--version", "-V"}) {
    SCOPED_TRACE(line);
    const Result result = run(line);
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, HasSubstr("tallyctl"));
    EXPECT_THAT(result.words, IsEmpty());
  }
}

TEST_F(Tallyctl, TellsThatNoDaemonReads) {
  write_delta("host_1_delta.bin", kHost, 1, 62);
  for (const char* line :
       {"create host 1", "viewing host 1 --keep 1", "stop", "watch host 1 --seconds 5"}) {
    const Result result = run(line);
    EXPECT_EQ(result.code, 3) << line;
    EXPECT_THAT(result.words, HasSubstr("no daemon is reading")) << line;
  }
}

TEST_F(Tallyctl, ShowTellsFilesApart) {
  write_delta("host_1_delta.bin", kHost, 2, 62);
  write_delta("etherstats_delta.bin", kEtherStats, 1, 172);
  write_delta("host_2_delta.bin", kHost, 0, 62);
  write_delta("host_3_delta.bin", kHost, 2, 62, 0);
  write_delta("host_4_delta.bin", kHost, 2, 62, 15);
  write_delta("host_5_delta.bin", kHost, 2, 62, 16 + 123);
  write_delta("host_6_delta.bin", kVlan, 1, 36);
  write_delta("host_7_delta.bin", kHost, 1, 62);
  const UniqueFd writer(open((directory_ / "host_7_delta.bin").c_str(), O_RDONLY));
  ASSERT_EQ(flock(writer.get(), LOCK_EX), 0);
  const struct {
    const char* line;
    int code;
    const char* out;
    const char* words;
  } cases[] = {
      {"show host 1", 0, "host 1  interval 60 s", ""},
      {"show 12", 0, "etherStatsPkts65to127Octets", ""},
      {"show host 2", 0, "rows 0", "only a header"},
      {"show host 3", 1, "", "is empty"},
      {"show host 4", 1, "", "15 octets are too short"},
      {"show host 5", 1, "", "139 octets are not 16 + n x 62"},
      {"show host 6", 1, "", "names collection type 5, not 0"},
      {"show host 7 --wait 1", 1, "", "waiting up to 1 s"},
      {"show host 7 --wait 0", 1, "", "still writing"},
      {"show host 99", 1, "", "there is no delta file"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.line);
    const Result result = run(each.line);
    EXPECT_EQ(result.code, each.code);
    EXPECT_THAT(result.out, HasSubstr(each.out));
    EXPECT_EQ(result.out.empty(), *each.out == '\0');
    EXPECT_THAT(result.words, HasSubstr(each.words));
    EXPECT_EQ(result.words.empty(), *each.words == '\0');
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b"))) << "colour in a file";
  }
}

TEST_F(Tallyctl, WatchShowsEachAndKeepsThemViewed) {
  listen();
  write_delta("host_1_delta.bin", kHost, 2, 62);
  std::thread daemon([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds{400});
    write_delta("pdist_1_delta.bin", kPdist, 0, 24);
    std::this_thread::sleep_for(std::chrono::milliseconds{1000});
    write_delta("pdist_1_delta.bin", kPdist, 3, 24);
  });
  const Result result = run("watch host 1 pdist 1 --count 1 --seconds 60 --every 1");
  daemon.join();
  EXPECT_EQ(result.code, 0) << result.words;
  EXPECT_THAT(result.out, HasSubstr("host 1  interval 60 s"));
  EXPECT_THAT(result.out, HasSubstr("rows 0"));
  EXPECT_THAT(result.out, HasSubstr("rows 3"));
  EXPECT_THAT(result.words, HasSubstr("pdist 1: no delta file yet"));
  const std::vector<std::uint32_t> sent = messages();
  const std::vector<std::uint32_t> round{2, kHost, 1, 2, kPdist, 1};
  ASSERT_GE(sent.size(), 2 * round.size());
  for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i], round[i % round.size()]);
}

TEST_F(Tallyctl, WatchTellsWhoseRatesItDidNotShow) {
  write_delta("host_1_delta.bin", kHost, 2, 62);
  write_delta("vlan_1_delta.bin", kVlan, 0, 36);
  write_delta("prio_1_delta.bin", kPrio, 1, 20, 17);
  const Result result = run("watch --no-viewing host 1 vlan 1 prio 1 --seconds 1");
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.words, HasSubstr("vlan 1: no rates were shown"));
  EXPECT_THAT(result.words, HasSubstr("prio 1: no rates were shown"));
  EXPECT_THAT(result.words, Not(HasSubstr("host 1: no rates were shown")));
}

TEST_F(Tallyctl, KeepsViewingUntilInterrupted) {
  listen();
  std::thread user([target = pthread_self()] {
    std::this_thread::sleep_for(std::chrono::milliseconds{1500});
    pthread_kill(target, SIGINT);
  });
  const Result result = run("viewing nlhost 2 --keep 1");
  user.join();
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(messages(), testing::ElementsAre(2, kNlHost, 2, 2, kNlHost, 2));

  // A period of its own choice; the signal comes first and would end the test if it were not taken.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  kill(getpid(), SIGTERM);
  EXPECT_EQ(run("viewing nlhost 2 --keep").code, 0);
  EXPECT_THAT(messages(), testing::ElementsAre(2, kNlHost, 2));
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

// Screen stands in for standard output while it lives: a screen of 10 lines of 40 characters.
class Screen {
 public:
  Screen() : stdout_(dup(STDOUT_FILENO)) {
    int screen = -1;
    int program = -1;
    const winsize size{10, 40, 0, 0};
    if (openpty(&screen, &program, nullptr, nullptr, &size) != 0) std::abort();
    screen_.reset(screen);
    fcntl(screen, F_SETFL, O_NONBLOCK);
    dup2(program, STDOUT_FILENO);
    close(program);
  }
  ~Screen() { dup2(stdout_.get(), STDOUT_FILENO); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  std::string written() const {
    std::string text(65536, '\0');
    const ssize_t got = read(screen_.get(), text.data(), text.size());
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return text;
  }

 private:
  UniqueFd stdout_;
  UniqueFd screen_;
};

TEST_F(Tallyctl, ColoursAndRedrawsOnlyATerminal) {
  write_delta("vlan_1_delta.bin", kVlan, 30, 36);
  write_delta("prio_1_delta.bin", kPrio, 30, 20);
  const struct {
    const char* line;
    const char* type;
    const char* no_color;
    bool colour;
    bool redrawn;
  } cases[] = {
      {"show vlan 1 --top 1", "xterm", "", true, false},
      {"show vlan 1 --top 1", "xterm", "1", false, false},
      {"show vlan 1 --top 1 --color never", "xterm", "", false, false},
      {"show vlan 1 --top 1", "dumb", "", false, false},
      {"watch --no-viewing vlan 1 prio 1 --count 1", "xterm", "", true, true},
      {"watch --no-viewing vlan 1 prio 1 --count 1 --color never", "xterm", "", false, true},
      {"watch --no-viewing vlan 1 prio 1 --count 1 --top 1", "dumb", "", false, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << each.line << " on " << each.type << " " << each.no_color);
    setenv("TERM", each.type, 1);
    setenv("NO_COLOR", each.no_color, 1);
    std::string text;
    {
      const Screen screen;
      EXPECT_EQ(run_here(each.line), 0);
      text = screen.written();
    }
    EXPECT_EQ(text.find("\x1b[1m") != std::string::npos, each.colour);
    EXPECT_EQ(text.find("\x1b[H") != std::string::npos, each.redrawn);
    EXPECT_THAT(text, HasSubstr("vlan 1  interval 60 s"));
    if (each.redrawn) {
      EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 10) << "it scrolls";
      EXPECT_THAT(text, HasSubstr("prio 1  interval 60 s"));
    }
  }
  unsetenv("NO_COLOR");
}

}  // namespace
}  // namespace tally
