// poll_ratio: what polling a table costs the daemon's code, and what it costs its peers.
//
// Runs the contenders in turn on one CPU against a canned agent and prints every cost as JSON.
//
//   poll    the daemon's poll of a table, by its own client and engine: fetch, merge, two files
//   bare    the same poll without libraries and checks: the least that it costs on this machine
//   stock   the stock rpcgen client, which fetches the same host rows and frees them
//
// Before anything is measured, `poll` and `bare` must write the same bytes. To be run in
// scripts/sandbox: the daemon's client knows one port only.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "agent/tapd_agent.h"
#include "bench/bare_poller.h"
#include "bench/canned_agent.h"
#include "bench/measure.h"
#include "bench/stock_client.h"
#include "daemon/base/clock.h"
#include "daemon/base/paths.h"
#include "files/file_format.h"
#include "files/poll_engine.h"

namespace {

using namespace tally::bench;
using tally::FileHeader;
using tally::now_seconds;

constexpr std::uint32_t kIndex = 1;
constexpr std::int32_t kInterval = 60;

struct Options {
  TableKind table = TableKind::host;
  std::uint32_t rows = 100'000;
  std::uint32_t rounds = 15;
  std::uint16_t port = tally::AGENT_PORT;
  int cpu = 0;
  std::string directory = tally::kDataDirectory;
  std::vector<std::string> contenders{"poll", "bare"};
};

void must(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

std::string content(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void write_sample(const std::string& path, std::uint32_t type, const std::string& records) {
  const FileHeader header{0, 0, now_seconds() - kInterval, type};
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(&header), sizeof header);
  out << records;
  must(bool(out.flush()), "cannot write a sample");
}

// Everything that contenders work with, made once.
class Arena {
 public:
  explicit Arena(const Options& options)
      : options_(options),
        shape_(table_shape(options.table)),
        listener_(serving_socket(SOCK_STREAM, options.port)),
        agent_([this] {
          SampleTable table(options_.table, kIndex, options_.rows);
          serve_table(listener_, table);
        }) {
    std::filesystem::create_directory(directory_);
    stock_ = connect_stock(options.port);
    connection_ = connect_raw(options.port);
  }
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  ~Arena() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  // From samples with old, new and missing rows.
  void expect_agreement() {
    if (options_.port != tally::AGENT_PORT) return;
    const SamplePaths paths = sample("agreement");
    write_sample(paths.prev, shape_.type, "");
    next_epoch(*stock_);
    poll(paths);
    const std::string whole = content(paths.last).substr(sizeof(FileHeader));
    const std::size_t record = shape_.stored + 8 * shape_.counters;
    must(whole.size() == options_.rows * record, "the daemon lost rows");
    std::string before =
        std::string(shape_.stored, '\0') + whole.substr(shape_.stored, record - shape_.stored);
    for (std::size_t at = 0; at < whole.size(); at += 2 * record)
      before += whole.substr(at, record);
    before += std::string(shape_.stored, '\xff') + std::string(record - shape_.stored, '\0');
    write_sample(paths.prev, shape_.type, before);
    next_epoch(*stock_);
    poll(paths);
    const std::string last = content(paths.last);
    const std::string delta = content(paths.delta);
    must(last.size() == sizeof(FileHeader) + whole.size() + 2 * record &&
             delta.size() == sizeof(FileHeader) + whole.size(),
         "the daemon lost rows");
    FileHeader header;
    std::memcpy(&header, last.data(), sizeof header);
    bare_poll(connection_, options_.table, kIndex, paths, header.sample_time);
    // The bare program asks for no up-time.
    must(content(paths.last).substr(sizeof header) == last.substr(sizeof header) &&
             content(paths.delta) == delta,
         "the daemon and the bare program disagree");
  }

  Contender contender(const std::string& name) {
    if (name == "stock" && options_.table == TableKind::host) {
      return {name, [this] { next_epoch(*stock_); },
              [this] {
                must(fetch_and_free(*stock_, kIndex) == options_.rows,
                     "the stock client lost rows");
              }};
    }
    const SamplePaths paths = sample(name);
    write_sample(paths.last, shape_.type, "");
    const auto prepare = [this, paths] { make_prev(paths); };
    if (name == "poll") return {name, prepare, [this, paths] { poll(paths); }};
    if (name != "bare") throw CLI::ValidationError("no contender " + name + " for this table");
    return {name, prepare, [this, paths] {
              bare_poll(connection_, options_.table, kIndex, paths, now_seconds());
            }};
  }

 private:
  SamplePaths sample(const std::string& name) const {
    const std::string stem = directory_ + "/" + name;
    return {stem + "_last.bin", stem + "_prev.bin", stem + "_delta.bin"};
  }

  // Before a poll the counters advance, and the last sample becomes the previous one, a minute old.
  void make_prev(const SamplePaths& paths) {
    next_epoch(*stock_);
    std::filesystem::rename(paths.last, paths.prev);
    const std::int32_t time = now_seconds() - kInterval;
    std::fstream file(paths.prev, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offsetof(FileHeader, sample_time));
    file.write(reinterpret_cast<const char*>(&time), sizeof time);
    must(bool(file.flush()), "cannot write the previous sample");
  }

  void poll(const SamplePaths& paths) {
    if (!connected_) connected_ = subject_.connect();
    must(connected_, "the daemon's client does not connect");
    tally::CollectionRecord collection{};
    collection.type = shape_.type;
    collection.index = kIndex;
    must(tally::poll_coll_delta(subject_, collection, paths.last.c_str(), paths.prev.c_str(),
                                paths.delta.c_str()) == 1,
         "the poll failed");
  }

  const Options& options_;
  const TableShape& shape_;
  std::string directory_ = options_.directory + "/poll_ratio." + std::to_string(getpid());
  int listener_;
  ChildProcess agent_;
  ClientHandle stock_;
  int connection_ = -1;
  tally::TapdAgent subject_;
  bool connected_ = false;
};

}  // namespace

int main(int argc, char** argv) try {
  Options options;
  std::map<std::string, TableKind> tables;
  for (std::size_t i = 0; i < std::size(kShapes); ++i) {
    tables[kShapes[i].name] = static_cast<TableKind>(i);
  }
  CLI::App app("Measures polls of a table; prints processor time in seconds as JSON.");
  app.add_option("--table", options.table, "Table that is polled; host if not given")
      ->transform(CLI::CheckedTransformer(tables));
  app.add_option("--rows", options.rows, "Rows of the table")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Measured runs of each")->capture_default_str();
  app.add_option("--port", options.port, "Port of the agent; `poll` needs the default")
      ->capture_default_str();
  app.add_option("--cpu", options.cpu, "CPU that everything runs on")->capture_default_str();
  app.add_option("--dir", options.directory, "Where the files go")->capture_default_str();
  app.add_option("contenders", options.contenders, "poll bare stock");
  CLI11_PARSE(app, argc, argv);
  pin_to(options.cpu);
  Arena arena(options);
  arena.expect_agreement();
  std::vector<Contender> contenders;
  for (const std::string& name : options.contenders) contenders.push_back(arena.contender(name));
  alternate(contenders, options.rounds);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "poll_ratio: %s\n", error.what());
  return 1;
}
