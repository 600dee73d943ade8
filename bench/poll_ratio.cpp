// poll_ratio: what polling a table costs the daemon's code, and what it costs its peers.
//
// Runs the contenders in turn on one CPU against a canned agent and prints every cost as JSON;
// bench/run makes the table of ratios from it.
//
//   poll    the daemon's poll of a table: fetch, merge, last and delta files
//   stock   the stock rpcgen client that fetches the same rows and frees them
//   bytes   the bytes of these rows through the RPC library, not decoded
//   bare    the same poll without libraries and checks: the least that it costs on this machine
//   map     a plain poller with std::map, iostreams and the stock client
//   rrd     the same rows written into librrd
//   merge   the merge engine alone, with rows that lie in memory
//   copy    a read-write loop over one sample file in blocks of 8 KiB
//
// All but poll, stock and bare work on the host table only.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "bench/agent_process.h"
#include "bench/bare_poller.h"
#include "bench/map_poller.h"
#include "bench/poll_subject.h"
#include "bench/rrd_files.h"
#include "bench/sample_table.h"
#include "bench/stock_client.h"
#include "bench/stopwatch.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"

namespace {

using namespace tally::bench;

constexpr std::uint32_t kIndex = 1;
constexpr std::int32_t kInterval = 60;

struct Options {
  TableKind table = TableKind::host;
  std::uint32_t rows = 100'000;
  std::uint32_t rounds = 15;
  int cpu = 0;
  std::string directory = "/dev/shm";
  std::vector<std::string> contenders{"poll", "stock"};
};

// A directory of our own that goes away with us.
class WorkDirectory {
 public:
  explicit WorkDirectory(const std::string& parent)
      : path_(parent + "/poll_ratio." + std::to_string(getpid())) {
    std::filesystem::create_directory(path_);
  }
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;
  ~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  // sample returns the paths of a contender's own sample.
  SamplePaths sample(const std::string& name) const {
    const std::string stem = path_ + "/" + name;
    return {stem + "_last.bin", stem + "_prev.bin", stem + "_delta.bin"};
  }
  std::string path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Everything that contenders work with, made once.
class Arena {
 public:
  explicit Arena(const Options& options)
      : table_(options.table),
        rows_(options.rows),
        directory_(options.directory),
        agent_(
            {"--port", "0", "--table", table_shape(table_).name, "--rows", std::to_string(rows_)}),
        stock_(connect_stock(agent_.port())) {}

  Contender contender(const std::string& name) {
    const SamplePaths paths = directory_.sample(name);
    if (name != "poll" && name != "stock" && name != "bare" && table_ != TableKind::host) {
      throw CLI::ValidationError(name + " works on the host table only");
    }
    if (name == "stock" || name == "bytes") {
      const bool decodes = name == "stock";
      return {name, [this] { next_epoch(*stock_); },
              [this, decodes] {
                const std::uint64_t rows = decodes ? fetch_and_free(*stock_, table_, kIndex)
                                                   : fetch_bytes(*stock_, kIndex);
                if (rows != rows_) throw std::runtime_error("rows lost");
              }};
    }
    if (name == "poll") {
      auto agent = std::make_shared<PolledAgent>(agent_.port(), table_shape(table_).type, kIndex);
      return poller(name, paths, [agent, paths] { agent->poll(paths); });
    }
    if (name == "bare") {
      const int connection = connect_raw(agent_.port());
      return poller(name, paths, [this, connection, paths] {
        bare_poll(connection, table_, kIndex, paths, tally::now_seconds());
      });
    }
    if (name == "map") {
      return poller(name, paths,
                    [this, paths] { map_poll(*stock_, kIndex, paths, tally::now_seconds()); });
    }
    if (name == "rrd") {
      auto files = std::make_shared<RrdFiles>(directory_.path("rrd"), rows_);
      return {name, [] {}, [files] { files->update(); }};
    }
    if (name == "merge") {
      write_sample(paths.prev, tally::kHost, host_records(rows_, 0),
                   tally::now_seconds() - kInterval);
      return {name, [] {},
              [records = host_records(rows_, 1), paths] { merge_records(records, paths); }};
    }
    if (name == "copy") {
      write_sample(paths.prev, tally::kHost, host_records(rows_, 0), tally::now_seconds());
      return {name, [] {}, [paths] { copy_in_blocks(paths.prev, paths.last); }};
    }
    throw CLI::ValidationError("no contender " + name);
  }

 private:
  // Before a poll the counters advance and the last sample becomes the previous one.
  Contender poller(const std::string& name, const SamplePaths& paths, std::function<void()> work) {
    write_sample(paths.last, table_shape(table_).type, {}, tally::now_seconds() - kInterval);
    return {name,
            [this, paths] {
              next_epoch(*stock_);
              make_prev(paths, kInterval);
            },
            std::move(work)};
  }

  TableKind table_;
  std::uint32_t rows_;
  WorkDirectory directory_;
  AgentProcess agent_;
  ClientHandle stock_;
};

void run(const Options& options) {
  pin_to(options.cpu);
  Arena arena(options);
  std::vector<Contender> contenders;
  for (const std::string& name : options.contenders) contenders.push_back(arena.contender(name));
  const auto costs = alternate(contenders, options.rounds);

  nlohmann::ordered_json result{{"table", table_shape(options.table).name},
                                {"rows", options.rows},
                                {"rounds", options.rounds}};
  add_costs(result, contenders, costs);
  std::printf("%s\n", result.dump(1).c_str());
}

}  // namespace

int main(int argc, char** argv) try {
  Options options;
  std::map<std::string, TableKind> tables;
  for (const TableKind each : kTableKinds) tables[table_shape(each).name] = each;
  CLI::App app("Measures polls of a table; prints costs in seconds as JSON.");
  app.add_option("--table", options.table, "Table that is polled; host if not given")
      ->transform(CLI::CheckedTransformer(tables));
  app.add_option("--rows", options.rows, "Rows of the table")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Measured runs of each")->capture_default_str();
  app.add_option("--cpu", options.cpu, "CPU that everything runs on")->capture_default_str();
  app.add_option("--dir", options.directory, "Where the files go; a tmpfs")->capture_default_str();
  app.add_option("contenders", options.contenders, "poll stock bytes bare map rrd merge copy");
  CLI11_PARSE(app, argc, argv);
  run(options);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "poll_ratio: %s\n", error.what());
  return 1;
}
