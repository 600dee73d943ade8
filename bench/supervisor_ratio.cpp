// supervisor_ratio: what a poll of the supervisor costs the daemon's code, and what the same
// exchanges cost others.
//
// Runs the contenders in turn on one CPU against a canned supervisor and prints every cost as JSON.
//
//   poll     the daemon's own poll of a kind, files included: one request for each row
//   libsnmp  libsnmp's synchronous client, which asks the same and drops the answers
//   echo     the same datagrams, ready made, through a bare socket: the responder's own round trip
//
// All ask what the daemon asked in a first poll, and the supervisor counts that they do. To be run
// in scripts/sandbox: the daemon writes its files where it always does.
#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>

#include "bench/canned_supervisor.h"
#include "bench/libsnmp_client.h"
#include "bench/measure.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/supervisor_kinds.h"
#include "files/file_format.h"
#include "files/unique_fd.h"
#include "snmp/getport.h"
#include "supervisor/supclient.h"

namespace {

using namespace tally::bench;

constexpr std::uint16_t kPort = 1161;
constexpr std::int32_t kInterval = 60;

// Kind is what a kind's polls look like from outside.
struct Kind {
  std::uint32_t type;
  std::size_t bindings;     // of a request
  std::size_t record_size;  // bytes
  std::size_t rates_at;     // where the rates begin in a record, which ends with them
};

struct Options {
  Kind kind{};
  std::uint32_t rows = 1000;
  std::uint32_t rounds = 15;
  int cpu = 0;
};

void must(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

// Orders the supervisor about.
class Orders {
 public:
  explicit Orders(int fd) : fd_(fd) {}

  // Begins the next epoch, and returns how many requests were served in the one that ends.
  std::uint32_t advance() const {
    std::uint32_t count = 0;
    must(order(kAdvance, &count, sizeof count) == sizeof count, "the supervisor does not count");
    return count;
  }
  // Returns the requests of this epoch.
  std::vector<std::string> served() const {
    std::vector<std::string> messages;
    char bytes[2048];
    while (const std::size_t size = order(kReport, bytes, sizeof bytes)) {
      messages.emplace_back(bytes, size);
    }
    return messages;
  }

 private:
  std::size_t order(std::uint8_t order, void* answer, std::size_t room) const {
    must(send(fd_, &order, 1, 0) == 1, "the canned supervisor is gone");
    const ssize_t got = recv(fd_, answer, room, 0);
    must(got >= 0, "the canned supervisor does not obey");
    return static_cast<std::size_t>(got);
  }

  int fd_;
};

// The daemon's kind, with rows that it has found. The transport looks its port up once, before the
// daemon's own start would tell it port 161.
class PolledKind {
 public:
  explicit PolledKind(const Options& options) : kind_(options.kind) {
    setenv("ZN_SNMP_TEST_PORT", std::to_string(kPort).c_str(), 1);
    must(tally::GetSNMPPort() == kPort, "the port is not ours");
    std::strcpy(tally::nmp_address, "127.0.0.1");
    std::strcpy(tally::nmp_community, tally::kDefaultNmpCommunity);
    subject().initialise();
    must(tally::start_snmp_client() == 0, "no SNMP client");
    subject().refresh_rows();
    run();
  }
  PolledKind(const PolledKind&) = delete;
  PolledKind& operator=(const PolledKind&) = delete;
  ~PolledKind() {
    subject().clean_up();
    tally::stop_snmp_client();
  }

  // The last sample becomes a minute old. There is none of a kind that keeps it in memory.
  void prepare() const {
    const auto path = tally::collection_path(kind_.type, 0, tally::FileKind::last);
    const tally::UniqueFd file(open(path.text, O_WRONLY | O_CLOEXEC));
    const std::int32_t time = tally::now_seconds() - kInterval;
    must(!file || pwrite(file.get(), &time, sizeof time,
                         offsetof(tally::FileHeader, sample_time)) == sizeof time,
         "cannot write the last file");
  }

  void run() const {
    const std::int32_t now = tally::schedule_seconds();
    must(subject().hooks.poll(now, now - kInterval) == 1, "the poll failed");
  }

  // Every row must be in the delta file with the rates of one epoch; some rates are sums of two.
  void expect_rates(std::uint32_t rows) const {
    std::ifstream in(tally::collection_path(kind_.type, 0, tally::FileKind::delta).text,
                     std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    must(file.size() == sizeof(tally::FileHeader) + rows * kind_.record_size, "rows are lost");
    const auto interval = number_at<std::int32_t>(file, 0);
    for (std::size_t at = sizeof(tally::FileHeader); at < file.size(); at += kind_.record_size) {
      const double rate = row_step(number_at<std::uint32_t>(file, at)) / double(interval);
      for (std::size_t field = kind_.rates_at; field < kind_.record_size; field += sizeof rate) {
        const auto found = number_at<double>(file, at + field);
        must(found == rate || found == 2 * rate, "rates are wrong");
      }
    }
  }

 private:
  template <class Number>
  static Number number_at(const std::string& bytes, std::size_t offset) {
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
  }
  tally::SupervisorKind& subject() const { return tally::supervisor_kind(kind_.type); }

  Kind kind_;
};

void echo(int fd, const std::vector<std::string>& messages) {
  char answer[2048];
  for (const std::string& message : messages) {
    must(send(fd, message.data(), message.size(), 0) > 0 && recv(fd, answer, sizeof answer, 0) > 0,
         "no echo");
  }
}

// libsnmp takes 64 KiB for every answer. Where other contenders' blocks happen to lie, the heap may
// give that room back to the system each time, which doubles libsnmp's costs and is not its fault.
void keep_heap() {
  constexpr int kRoom = 64 << 20;  // bytes
  mallopt(M_TRIM_THRESHOLD, kRoom);
  mallopt(M_TOP_PAD, kRoom);
  mallopt(M_MMAP_THRESHOLD, kRoom / 4);
}

void run(const Options& options) {
  keep_heap();
  pin_to(options.cpu);
  const int serving = serving_socket(SOCK_DGRAM, kPort);
  const ChildProcess supervisor([&] { serve_snmp(serving, options.rows); });
  close(serving);  // so that a supervisor that has ended is noticed
  const int fd = connected_socket(SOCK_DGRAM, kPort);
  const Orders orders(fd);

  const PolledKind kind(options);
  (void)orders.advance();  // forgets what was asked for to find the rows
  kind.prepare();
  kind.run();
  kind.expect_rates(options.rows);
  const std::vector<std::string> messages = orders.served();
  std::vector<Request> requests;
  for (const std::string& message : messages) {
    requests.push_back(
        read_request(Bytes(reinterpret_cast<const std::uint8_t*>(message.data()), message.size())));
    must(requests.back().names.size() == options.kind.bindings, "a poll asks for something else");
  }
  must(requests.size() == options.rows, "a poll does not ask once for each row");

  LibsnmpClient libsnmp(kPort, requests);
  std::optional<std::size_t> expected;  // of the contender before
  const auto prepare = [&] {
    const std::uint32_t served = orders.advance();
    must(!expected || served == *expected, "a contender asks for something else");
    expected = requests.size();
    kind.prepare();
  };
  alternate({{"poll", prepare, [&] { kind.run(); }},
             {"libsnmp", prepare, [&] { libsnmp.run(); }},
             {"echo", prepare, [&] { echo(fd, messages); }}},
            options.rounds);
  prepare();
}

}  // namespace

int main(int argc, char** argv) try {
  const std::map<std::string, std::uint32_t> names{{"etherstats", tally::kEtherStats},
                                                   {"ifstats", tally::kIfStats}};
  Options options;
  options.kind.type = tally::kEtherStats;
  CLI::App app("Measures polls of the supervisor; prints processor time in seconds as JSON.");
  app.add_option("--kind", options.kind.type, "Kind that is polled; etherstats if not given")
      ->transform(CLI::CheckedTransformer(names));
  app.add_option("--rows", options.rows, "Rows and interfaces")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Measured runs of each")->capture_default_str();
  app.add_option("--cpu", options.cpu, "CPU that everything runs on")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  options.kind = options.kind.type == tally::kEtherStats ? Kind{tally::kEtherStats, 28, 172, 36}
                                                         : Kind{tally::kIfStats, 13, 120, 40};
  run(options);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "supervisor_ratio: %s\n", error.what());
  return 1;
}
