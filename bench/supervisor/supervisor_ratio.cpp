// supervisor_ratio: what a poll of the supervisor costs the daemon's code, and what the same
// exchanges cost others.
//
// Runs the contenders in turn on one CPU against a canned supervisor and prints every cost as JSON;
// bench/run makes ratios from it. To be run in scripts/sandbox: the daemon writes its files where
// it always does.
//
//   poll     the daemon's own poll of a kind, files included
//   libsnmp  libsnmp's synchronous client, which drops the answers
//   echo     datagrams that lie ready, sent and received: the responder's own round trip
//
// Each contender is first run once without being measured, and must then have made exactly the
// exchanges of the work.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "bench/stopwatch.h"
#include "bench/supervisor/contenders.h"
#include "daemon/base/collection_types.h"

namespace {

using namespace tally::bench;

struct Options {
  Work work{tally::kEtherStats, 1000, false, false};
  std::uint32_t delay = 0;
  std::uint32_t rounds = 15;
  int cpu = 0;
  std::vector<std::string> contenders{"poll", "libsnmp", "echo"};
};

template <class Client>
Contender contender(const std::string& name, CannedSupervisor& supervisor, const Work& work) {
  const auto client = std::make_shared<Client>(supervisor.port(), work);
  return {name,
          [&supervisor, client] {
            supervisor.advance();
            if constexpr (requires { client->prepare(); }) client->prepare();
          },
          [client] { client->run(); }};
}

Contender contender_named(const std::string& name, CannedSupervisor& supervisor, const Work& work) {
  if (name == "poll") return contender<PolledKind>(name, supervisor, work);
  if (name == "libsnmp") return contender<LibsnmpClient>(name, supervisor, work);
  if (name == "echo") return contender<EchoClient>(name, supervisor, work);
  throw CLI::ValidationError("no contender " + name);
}

RequestCounts wanted_counts(const Work& work) {
  RequestCounts counts{};
  for (const Step& step : steps_of(work)) ++counts[static_cast<std::size_t>(step.kind)];
  return counts;
}

// What one run makes the supervisor answer. Throws when it is not the work.
RequestCounts counted_run(const Contender& contender, CannedSupervisor& supervisor,
                          const Work& work) {
  contender.prepare();
  RequestCounts before = supervisor.counts();
  contender.work();
  RequestCounts made = supervisor.counts();
  for (std::size_t i = 0; i < made.size(); ++i) made[i] -= before[i];
  if (made != wanted_counts(work)) throw std::runtime_error(contender.name + " asks otherwise");
  return made;
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
  const Work& work = options.work;
  CannedSupervisor supervisor(work.rows, work.idle, options.delay);
  nlohmann::ordered_json result{{"kind", tally::type_stem(work.type)},
                                {"rows", work.rows},
                                {"refresh", work.refresh},
                                {"idle", work.idle},
                                {"delay", options.delay},
                                {"rounds", options.rounds},
                                {"exchanges", steps_of(work).size()}};
  std::vector<Contender> contenders;
  for (const std::string& name : options.contenders) {
    contenders.push_back(contender_named(name, supervisor, work));
    const RequestCounts made = counted_run(contenders.back(), supervisor, work);
    auto& requests = result["contenders"][name]["requests"];
    for (std::size_t i = 0; i < kRequestKinds; ++i) requests[kRequestNames[i]] = made[i];
  }
  const auto costs = alternate(contenders, options.rounds);
  add_costs(result, contenders, costs);
  std::printf("%s\n", result.dump(1).c_str());
}

}  // namespace

int main(int argc, char** argv) try {
  Options options;
  const std::map<std::string, std::uint32_t> kinds{{"etherstats", tally::kEtherStats},
                                                   {"ifstats", tally::kIfStats}};
  CLI::App app("Measures polls of the supervisor; prints costs in seconds as JSON.");
  app.add_option("--kind", options.work.type, "Kind that is polled; etherstats if not given")
      ->transform(CLI::CheckedTransformer(kinds));
  app.add_option("--rows", options.work.rows, "Rows and interfaces")->capture_default_str();
  app.add_flag("--refresh", options.work.refresh, "Refresh the rows before each poll");
  app.add_flag("--idle", options.work.idle, "All interfaces are down");
  app.add_option("--delay", options.delay,
                 "Microseconds that the supervisor thinks about an answer")
      ->capture_default_str();
  app.add_option("--rounds", options.rounds, "Measured runs of each")->capture_default_str();
  app.add_option("--cpu", options.cpu, "CPU that everything runs on")->capture_default_str();
  app.add_option("contenders", options.contenders, "poll libsnmp echo");
  CLI11_PARSE(app, argc, argv);
  run(options);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "supervisor_ratio: %s\n", error.what());
  return 1;
}
