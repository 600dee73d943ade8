// Breaking off what another thread waits for.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>

namespace tally {

// Interrupt is raised once, by any thread, and stays raised. Whoever waits for something else
// waits for its descriptor, too, and starts nothing new once it is raised.
class Interrupt {
 public:
  Interrupt() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~Interrupt() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  void raise() {
    raised_ = true;
    (void)eventfd_write(descriptor_, 1);  // cannot fail but for a descriptor that is not there
  }
  bool raised() const { return raised_; }

  // descriptor becomes readable when the interrupt is raised, and stays so. It is -1, which poll(2)
  // passes over, when the system had none left: then waits end by themselves.
  int descriptor() const { return descriptor_; }

 private:
  const int descriptor_;
  std::atomic<bool> raised_{false};
};

}  // namespace tally
