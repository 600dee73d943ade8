// Measuring: what a piece of work costs this process, and how to compare pieces fairly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace tally::bench {

struct Cost {
  double cpu;   // seconds that all threads of this process ran, in user and kernel mode
  double wall;  // seconds that passed
};

// measure runs the work once.
template <class Work>
Cost measure(Work&& work) {
  const auto read = [](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  const double wall = read(CLOCK_MONOTONIC);
  const double cpu = read(CLOCK_PROCESS_CPUTIME_ID);
  work();
  return {read(CLOCK_PROCESS_CPUTIME_ID) - cpu, read(CLOCK_MONOTONIC) - wall};
}

// A contender is a piece of work that is measured, and what has to happen before each run.
struct Contender {
  std::string name;
  std::function<void()> prepare;
  std::function<void()> work;
};

// alternate runs every contender once without counting, then `rounds` times in turn, so that
// whatever else the machine does falls on all alike. Returns the costs of each contender.
std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders,
                                         std::uint32_t rounds);

// add_costs writes them into result["contenders"][NAME]["cpu"] and ["wall"], lists of seconds.
template <class Json>
void add_costs(Json& result, const std::vector<Contender>& contenders,
               const std::vector<std::vector<Cost>>& costs) {
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    auto& entry = result["contenders"][contenders[i].name];
    for (const Cost& cost : costs[i]) {
      entry["cpu"].push_back(cost.cpu);
      entry["wall"].push_back(cost.wall);
    }
  }
}

// pin_to keeps this process, and the processes that it starts, on one CPU. Throws when it cannot.
void pin_to(int cpu);

}  // namespace tally::bench
