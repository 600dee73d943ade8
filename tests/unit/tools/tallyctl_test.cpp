// The commands as people type them, against a data directory and a pipe of the test's own.
#include "commands/tallyctl.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>

#include "daemon/collection_types.h"
#include "files/unique_fd.h"
#include "metrics/http_server.h"
#include "metrics/metrics_page.h"
#include "pipe/pipe_writer.h"
#include "records/collection_files.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::uint32_t>;

struct Result {
  int code;
  std::string out;
  std::string words;
};

class Tallyctl : public testing::Test {
 protected:
  Tallyctl() {
    alarm(60);  // ends a command that hangs
    EXPECT_EQ(mkfifo(paths_.control_pipe.c_str(), 0600), 0);
    reader_.reset(open(paths_.control_pipe.c_str(), O_RDONLY | O_NONBLOCK));
  }
  ~Tallyctl() override { alarm(0); }

  int run_here(const std::string& line) const {
    std::istringstream stream("tallyctl " + line);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
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

  // run_on_screen returns what a command writes to a screen of 10 lines of 40 characters.
  std::string run_on_screen(const std::string& line, const char* type, const char* no_color) const {
    setenv("TERM", type, 1);
    setenv("NO_COLOR", no_color, 1);
    int screen = -1;
    int program = -1;
    const winsize size{10, 40, 0, 0};
    EXPECT_EQ(openpty(&screen, &program, nullptr, nullptr, &size), 0);
    const UniqueFd before(dup(STDOUT_FILENO));
    dup2(program, STDOUT_FILENO);
    EXPECT_EQ(run_here(line), 0);
    dup2(before.get(), STDOUT_FILENO);
    std::string text(65536, '\0');
    const ssize_t got = read(screen, text.data(), text.size());
    close(program);
    close(screen);
    return text.substr(0, got > 0 ? static_cast<std::size_t>(got) : 0);
  }

  // locked opens a file to write it, and waits for the lock as the daemon does.
  static UniqueFd locked(const std::string& path, int flags = 0) {
    UniqueFd fd(open(path.c_str(), O_WRONLY | flags, 0600));
    EXPECT_EQ(flock(fd.get(), LOCK_EX), 0);
    return fd;
  }

  // write_delta makes a delta file whose records are `octets` zeros.
  void write_delta(const std::string& name, std::uint32_t type, std::size_t octets) const {
    write_file(directory_ / (name + "_delta.bin"),
               bytes_of(FileHeader{60, 0, 1'700'000'000, type}) + std::string(octets, '\0'));
  }

  // messages takes what waits in the pipe.
  Words messages() const {
    Words words(300);
    const ssize_t got = read(reader_.get(), words.data(), words.size() * sizeof words[0]);
    words.resize(got > 0 ? static_cast<std::size_t>(got) / sizeof words[0] : 0);
    return words;
  }

  TemporaryDirectory directory_;
  ToolPaths paths_{directory_.path(),          directory_ / "pipe",     directory_ / "pid",
                   directory_ / "preferences", directory_ / "settings", directory_ / "appliance"};
  UniqueFd reader_;
};

TEST_F(Tallyctl, AnswersWithMessagesWordsAndExitCodes) {
  write_delta("host_1", kHost, 2 * 62);
  write_delta("host_2", kHost, 0);
  write_file(directory_ / "host_3_delta.bin", "");
  write_file(directory_ / "host_4_delta.bin", std::string(15, '\0'));
  write_delta("host_5", kHost, 123);
  write_delta("host_6", kVlan, 36);
  write_delta("host_7", kHost, 62);
  const UniqueFd writer = locked(directory_ / "host_7_delta.bin");
  ASSERT_EQ(mkfifo((directory_ / "host_8_delta.bin").c_str(), 0600), 0);
  write_file(directory_ / "host_9_last.bin", read_file(directory_ / "host_1_delta.bin"));
  write_delta("etherstats", kEtherStats, 172);
  const struct {
    const char* line;
    int code;
    Words message;
    const char* out;
    const char* words;
  } cases[] = {
      {"create host 3", 0, {3, kHost, 3}, "", ""},
      {"destroy 10 4294967295", 0, {4, kDsMatrix, 4294967295}, "", ""},
      {"viewing etherstats 0", 0, {2, kEtherStats, 0}, "", ""},
      {"create dsmatrix 1", 0, {3, kDsMatrix, 1}, "", "note: the daemon only logs"},
      {"interval 15", 0, {1, 15, 0}, "", ""},
      {"interval -1", 0, {1, 0xffffffff, 0}, "", "note: the daemon takes 15 s for -1 s"},
      {"interval 3601", 0, {1, 3601, 0}, "", "note: the daemon takes 3600 s"},
      {"reload", 0, {5, 0, 0}, "", ""},
      {"rescan", 0, {6, 0, 0}, "", ""},
      {"stop", 0, {0, 0, 0}, "", ""},
      {"frob", 2, {}, "", "A subcommand is required"},
      {"create host", 2, {}, "", "needs a control index"},
      {"create host -1", 2, {}, "", "-1"},
      {"create host 4294967296", 2, {}, "", "is no control index"},
      {"create host 1 2", 2, {}, "", "needs a control index"},
      {"create 11 1", 2, {}, "", "is no collection type"},
      {"interval 1.5", 2, {}, "", "1.5"},
      {"viewing host 1 --keep 0", 2, {}, "", "--keep"},
      {"watch host 1 --sort frob", 2, {}, "", "no column 'frob'"},
      {"--help", 0, {}, "tallyctl", ""},
      {"show host 1 --sort HOSTINPKTS", 0, {}, "rows 2  by hostInPkts", ""},
      {"show 12", 0, {}, "etherStatsPkts65to127Octets", ""},
      {"show host 2", 0, {}, "rows 0", "only a header"},
      {"show host 1 --json", 0, {}, R"("hostAddress":"00:00:00:00:00:00","hostInPkts":0,)", ""},
      {"show host 1 --csv --no-notes", 0, {}, "\n00:00:00:00:00:00,0,0,0,0,0,0,0,\n", ""},
      {"show host 1 --csv", 0, {}, "hostOutMulticastPkts,notes\n", "note: rows are not compared"},
      {"show host 9 --file last", 0, {}, "last sample  up-time 0", ""},
      {"show host 9 --file prev", 1, {}, "", "there is no such file"},
      {"show etherstats --file last", 2, {}, "", "in memory"},
      {"show host 1 --where frob=1", 2, {}, "", "no column 'frob'"},
      {"show host 1 --json --csv", 2, {}, "", "excludes"},
      {"view host 1 pdist", 2, {}, "", "needs a control index"},
      {"record", 2, {}, "", "needs one of"},
      {"record --csv /proc/none/there", 1, {}, "", "name a directory"},
      {"metrics --listen nowhere", 1, {}, "", "is no address to listen at"},
      {"metrics --textfile /proc/none", 1, {}, "", "its directory must exist"},
      {"metrics host 1",
       0,
       {},
       R"(tallyd_file_good{type="host",index="1",file="last",state="absent"} 0)",
       ""},
      {"show host 3", 1, {}, "", "is empty"},
      {"show host 4", 1, {}, "", "15 octets are too short"},
      {"show host 5", 1, {}, "", "139 octets are not 16 + n x 62"},
      {"show host 6", 1, {}, "", "names collection type 5, not 0"},
      {"show host 7 --wait 1", 1, {}, "", "waiting up to 1 s"},
      {"show host 7 --wait 0", 1, {}, "", "the daemon is writing it"},
      {"show host 8", 1, {}, "", "not a regular file"},
      {"show host 99", 1, {}, "", "there is no such file"},
      {"watch --no-viewing host 2 --seconds 1", 1, {}, "rows 0", "host 2: no rates were shown"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.line);
    const Result result = run(each.line);
    EXPECT_EQ(result.code, each.code);
    EXPECT_EQ(messages(), each.message);
    EXPECT_THAT(result.out, HasSubstr(each.out));
    EXPECT_EQ(result.out.empty(), *each.out == '\0');
    EXPECT_THAT(result.words, HasSubstr(each.words));
    EXPECT_EQ(result.words.empty(), *each.words == '\0');
  }
}

TEST_F(Tallyctl, TellsWhyNoDaemonIsReached) {
  reader_.reset();
  write_file(directory_ / "file", "precious");
  for (const auto& [pipe, words] : {std::pair{"pipe", "nobody reads"},
                                    {"absent", "there is no control pipe"},
                                    {"file", "is no FIFO"}}) {
    paths_.control_pipe = directory_ / pipe;
    for (const char* line : {"stop", "viewing host 1 --keep 1", "watch host 1 --seconds 5"}) {
      const Result result = run(line);
      EXPECT_EQ(result.code, 3) << line;
      EXPECT_THAT(result.words, HasSubstr(words)) << line;
    }
  }
  EXPECT_EQ(read_file(directory_ / "file"), "precious");
}

TEST_F(Tallyctl, IsPatientWithAFullPipeAndNoLonger) {
  std::signal(SIGPIPE, SIG_IGN);
  const UniqueFd writer(open(paths_.control_pipe.c_str(), O_WRONLY | O_NONBLOCK));
  const auto send_to_full_pipe = [&](milliseconds patience) {
    while (write(writer.get(), "x", 1) == 1) {
    }
    return std::async(std::launch::async, send_message, paths_.control_pipe, ControlMessage{},
                      patience);
  };
  EXPECT_THAT(send_to_full_pipe(milliseconds{100}).get().text(), HasSubstr("is full"));

  auto sent = send_to_full_pipe(milliseconds{30000});
  while (sent.wait_for(milliseconds{10}) != std::future_status::ready) messages();
  EXPECT_EQ(sent.get().text(), "");

  sent = send_to_full_pipe(milliseconds{30000});
  std::this_thread::sleep_for(milliseconds{50});  // it waits for room by now
  reader_.reset();
  EXPECT_THAT(sent.get().text(), HasSubstr("nobody reads"));
}

// The daemon may end what it began, or make the file anew meanwhile.
TEST_F(Tallyctl, ShowWaitsForTheWholeFile) {
  for (const bool made_anew : {false, true}) {
    write_delta("host_1", kHost, 62);
    UniqueFd writer = locked(directory_ / "host_1_delta.bin");
    std::thread daemon([&] {
      std::this_thread::sleep_for(milliseconds{300});
      if (made_anew) std::filesystem::remove(directory_ / "host_1_delta.bin");
      write_delta("host_1", kHost, 2 * 62);
      writer.reset();
    });
    EXPECT_THAT(run("show host 1 --wait 30").out, HasSubstr("rows 2"));
    daemon.join();
  }
}

// One of the daemon's writers empties the file before it asks for the lock, under the eyes of
// whoever reads. A reader may see that there is nothing, and never a part.
TEST_F(Tallyctl, NeverTakesTornBytes) {
  const std::string path = directory_ / "host_1_delta.bin";
  const std::string whole(3 << 20, 'r');
  std::atomic<bool> stop = false;
  std::thread daemon([&] {
    for (unsigned round = 0; !stop; ++round) {
      UniqueFd writer = locked(path, O_CREAT | O_TRUNC);
      EXPECT_EQ(write(writer.get(), whole.data(), whole.size()), ssize_t{3 << 20});
      writer.reset();
      std::this_thread::sleep_for(std::chrono::microseconds{round % 16 * 2000});
    }
  });
  for (int whole_files = 0; whole_files < 30;) {
    const OpenFile file =
        open_files(directory_.path(), {kHost, 1}, FileKind::delta, Samples::none, milliseconds{0})
            .main;
    if (file.bytes.size() == 0) continue;
    ASSERT_EQ(file.bytes.size(), whole.size());
    ++whole_files;
  }
  stop = true;
  daemon.join();
}

TEST_F(Tallyctl, WatchShowsEachAndKeepsThemViewed) {
  write_delta("host_1", kHost, 2 * 62);
  std::thread daemon([&] {
    std::this_thread::sleep_for(milliseconds{1400});
    write_delta("pdist_1", kPdist, 3 * 24);
  });
  const Result result = run("watch host 1 pdist 1 --count 1 --seconds 50 --every 1");
  daemon.join();
  EXPECT_EQ(result.code, 0) << result.words;
  EXPECT_THAT(result.out, AllOf(HasSubstr("host 1  interval 60 s"), HasSubstr("rows 3")));
  EXPECT_THAT(result.words, HasSubstr("pdist 1: there is no such file"));
  const Words sent = messages();
  const Words round{2, kHost, 1, 2, kPdist, 1};
  ASSERT_GE(sent.size(), 2 * round.size());
  for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i], round[i % round.size()]);
}

TEST_F(Tallyctl, KeepsViewingUntilInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    std::thread user([target = pthread_self(), signal] {
      std::this_thread::sleep_for(milliseconds{1500});
      pthread_kill(target, signal);
    });
    EXPECT_EQ(run("viewing nlhost 2 --keep 1").code, 0);
    user.join();
    EXPECT_EQ(messages(), (Words{2, kNlHost, 2, 2, kNlHost, 2}));
  }
}

// What was polled while nobody recorded, and what is no rate, is unknown afterwards.
TEST_F(Tallyctl, RecordsEachIntervalOnceAndGapsAsUnknown) {
  const auto poll = [&](std::int32_t end, std::int32_t interval, double packets) {
    write_file(directory_ / "prio_1_delta.bin", bytes_of(FileHeader{interval, 0, end, kPrio}) +
                                                    bytes_of(std::uint32_t{5}) + bytes_of(packets) +
                                                    bytes_of(8.0));
  };
  const std::string csv = "record prio 1 --seconds 1 --csv " + (directory_ / "csv");
  const std::string rrd = "record prio 1 --seconds 1 --rrd " + (directory_ / "rrd");
  poll(1'700'000'060, 60, 1.5);
  EXPECT_EQ(run(csv).code, 0);
  EXPECT_EQ(run(rrd).code, 0);
  std::thread daemon([&] {
    std::this_thread::sleep_for(milliseconds{300});
    poll(1'700'000'300, 60, 2.5);
  });
  EXPECT_EQ(run(csv).code, 0);
  daemon.join();
  EXPECT_EQ(run(rrd).code, 0);
  EXPECT_EQ(read_file(directory_ / "csv/prio_1.csv"),
            "time,interval,smonPrioStatsId,smonPrioStatsPkts,smonPrioStatsOctets,notes\n"
            "1700000060,60,5,1.5,8,\n1700000240,180,,,,gap\n1700000300,60,5,2.5,8,\n");
  FILE* fetch =
      popen(("rrdtool fetch " + (directory_ / "rrd/prio_1/5.rrd") +
             " AVERAGE -s 1700000040 -e 1700000300 2>/dev/null | awk '{print $2}' | tr '\\n' ' '")
                .c_str(),
            "r");
  char values[256] = "";
  const std::size_t got = fread(values, 1, sizeof values - 1, fetch);
  if (pclose(fetch) != 0 || got < 20) GTEST_SKIP() << "rrdtool is not there to judge";
  EXPECT_THAT(values, HasSubstr("nan"));
  const FileSizeLimit full(read_file(directory_ / "csv/prio_1.csv").size() + 5);
  poll(1'700'000'360, 60, 3);
  EXPECT_THAT(run(csv).words, HasSubstr("this interval is missing there"));
  EXPECT_THAT(read_file(directory_ / "csv/prio_1.csv"), testing::EndsWith("60,5,2.5,8,\n"));
}

UniqueFd connect_to(int port) {
  UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// get sends a request in pieces and returns the answer.
std::string get(int port, const std::string& request, std::size_t piece) {
  const UniqueFd fd = connect_to(port);
  for (std::size_t at = 0; at < request.size(); at += piece) {
    (void)send(fd.get(), request.data() + at, std::min(piece, request.size() - at), MSG_NOSIGNAL);
  }
  std::string answer;
  char bytes[4096];
  ssize_t more = 0;
  while ((more = recv(fd.get(), bytes, sizeof bytes, 0)) > 0) {
    answer.append(bytes, static_cast<std::size_t>(more));
  }
  return answer;
}

TEST_F(Tallyctl, ServesMetricsToScrapersAndToNobodyForLong) {
  write_file(directory_ / "ifstats_last.bin",
             bytes_of(FileHeader{0, 0, 1'700'000'000, kIfStats}) + bytes_of(std::uint32_t{7}) +
                 bytes_of(std::uint32_t{3}) + std::string("a\"\n") + std::string(109, '\0'));
  HttpServer server;
  ASSERT_EQ(server.listen("0"), "");
  const int port = std::stoi(server.address().substr(server.address().rfind(':') + 1));
  std::atomic<bool> stop = false;
  std::thread daemon([&] {
    MetricsScope scope;
    while (!stop) {
      server.serve_once(-1, [&] {
        Output page(Output::kCollect);
        write_metrics_page(paths_, scope, page);
        return page.text();
      });
    }
  });
  const UniqueFd silent = connect_to(port);  // is in nobody's way
  const std::string page = get(port, "GET /metrics HTTP/1.1\r\n\r\n", 1);
  EXPECT_THAT(page,
              AllOf(testing::StartsWith("HTTP/1.1 200 OK\r\n"),
                    HasSubstr("\ntallyd_ifstats_in_octets_total{type=\"ifstats\",ifindex=\"7\","
                              "ifname=\"a\\\"\\\\x0a\"} 0\n"),
                    HasSubstr("\ntallyd_up 0\n")));
  EXPECT_THAT(get(port, "HEAD /metrics HTTP/1.1\n\n", 99), testing::EndsWith("\r\n\r\n"));
  EXPECT_THAT(get(port, "POST /metrics HTTP/1.1\n\n", 99), HasSubstr(" 405 "));
  EXPECT_THAT(get(port, "GET /other HTTP/1.1\n\n", 99), HasSubstr(" 404 "));
  EXPECT_THAT(get(port, "GET /" + std::string(20000, 'a'), 9999), HasSubstr(" 431 "));
  std::string slow(99, '\0');  // told so when its time is over
  EXPECT_GT(recv(silent.get(), slow.data(), slow.size(), 0), 0);
  EXPECT_THAT(slow, HasSubstr(" 408 "));
  stop = true;
  const UniqueFd last = connect_to(port);  // wakes it up
  daemon.join();

  // A page that the engine's own tool has no complaint about.
  ASSERT_EQ(run("metrics --textfile " + (directory_ / "page.prom")).code, 0);
  if (std::system("command -v promtool >/dev/null") == 0) {
    EXPECT_EQ(std::system(("promtool check metrics <" + (directory_ / "page.prom")).c_str()), 0);
  }
}

TEST_F(Tallyctl, TellsTheStateOfEverything) {
  write_delta("vlan_1", kVlan, 36);
  write_file(directory_ / "etherstats_delta.bin", "?");
  const Result status = run("status --json");
  EXPECT_EQ(status.code, 3);  // nobody holds the PID file
  EXPECT_THAT(status.out, AllOf(HasSubstr("\"running\": false"), HasSubstr("\"short-header\""),
                                HasSubstr("\"rates\": 1")));
  const UniqueFd lock(open((directory_ / "pid").c_str(), O_WRONLY | O_CREAT, 0600));
  write_file(directory_ / "pid", std::to_string(getpid()));
  EXPECT_EQ(flock(lock.get(), LOCK_EX), 0);
  EXPECT_EQ(run("status").code, 0);
  EXPECT_THAT(run("check").out, AllOf(HasSubstr(fmt::format("runs as process {}", getpid())),
                                      HasSubstr("vlan 1"), HasSubstr("is not polled any more"),
                                      HasSubstr("preferences"), HasSubstr("-> ")));
}

TEST_F(Tallyctl, ColoursAndRedrawsOnlyATerminal) {
  write_delta("vlan_1", kVlan, 30 * 36);
  write_delta("prio_1", kPrio, 30 * 20);
  const std::string show = "show vlan 1 --top 1";
  const std::string watch = "watch --no-viewing vlan 1 prio 1 --count 1";
  EXPECT_THAT(run(show).out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(run_on_screen(show, "xterm", "1"), Not(HasSubstr("\x1b")));
  EXPECT_THAT(run_on_screen(show + " --color never", "xterm", ""), Not(HasSubstr("\x1b")));
  EXPECT_THAT(run_on_screen(watch, "dumb", ""), Not(HasSubstr("\x1b")));
  EXPECT_THAT(run_on_screen(show, "xterm", ""), HasSubstr("\x1b[1mvlan 1"));
  // It takes the other screen, and gives all back.
  EXPECT_THAT(run_on_screen(watch, "xterm", ""), AllOf(testing::StartsWith("\x1b[?1049h\x1b[?25l"),
                                                       testing::EndsWith("\x1b[?25h\x1b[?1049l")));
  const std::string frame = run_on_screen(watch, "xterm", "");
  EXPECT_THAT(frame, AllOf(HasSubstr("\x1b[H"), HasSubstr("prio 1  interval 60 s")));
  EXPECT_LT(std::count(frame.begin(), frame.end(), '\n'), 10) << "it scrolls";
}

}  // namespace
}  // namespace tally
