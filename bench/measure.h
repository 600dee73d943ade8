// Measuring: what a piece of work costs this process, and how to compare pieces fairly.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tally::bench {

// A contender is a piece of work that is measured, and what has to happen before each run.
struct Contender {
  std::string name;
  std::function<void()> prepare;
  std::function<void()> work;
};

// alternate runs every contender once without counting, then `rounds` times in turn, so that
// whatever else the machine does falls on all alike. Prints the processor time of each run, that of
// all threads of this process in user and in kernel mode, as JSON: {NAME: [seconds...], ...}.
void alternate(const std::vector<Contender>& contenders, std::uint32_t rounds);

// pin_to keeps this process, and those that it starts, on one CPU. Throws when it cannot.
void pin_to(int cpu);

// ChildProcess runs a function in a process of its own, which ends with this object or with this
// process. What the function uses must have been made before.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void()>& work);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

 private:
  pid_t process_;
};

// Each returns a socket of this type (SOCK_STREAM or SOCK_DGRAM): bound to a port of 127.0.0.1 and,
// of a stream, listening there; or connected to it. Throws when that fails.
int serving_socket(int type, std::uint16_t port);
int connected_socket(int type, std::uint16_t port);

}  // namespace tally::bench
