// Ends a command that would go on for ever.
#pragma once

#include <chrono>
#include <csignal>

namespace tally {

// Interruption holds back SIGINT and SIGTERM while it lives, so that the command can end in its own
// way; sleep tells of them. Nothing is missed between two sleeps. For single-threaded programs.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // sleep waits for the time given. Returns false, at once, when a signal came.
  bool sleep(std::chrono::milliseconds time) const;

 private:
  sigset_t signals_;
  sigset_t before_;
};

}  // namespace tally
