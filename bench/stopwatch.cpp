#include "bench/stopwatch.h"

#include <sched.h>

#include <cerrno>
#include <system_error>

namespace tally::bench {

std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders,
                                         std::uint32_t rounds) {
  std::vector<std::vector<Cost>> costs(contenders.size());
  for (std::uint32_t round = 0; round <= rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      contenders[i].prepare();
      const Cost cost = measure(contenders[i].work);
      if (round > 0) costs[i].push_back(cost);
    }
  }
  return costs;
}

void pin_to(int cpu) {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  CPU_SET(cpu, &cpus);
  if (sched_setaffinity(0, sizeof cpus, &cpus) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot pin to one CPU");
  }
}

}  // namespace tally::bench
