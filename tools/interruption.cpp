#include "interruption.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace tally {

Interruption::Interruption() {
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGINT);
  sigaddset(&signals_, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals_, &before_);
}

Interruption::~Interruption() {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool Interruption::sleep(std::chrono::milliseconds time) const {
  using namespace std::chrono;
  const auto deadline = steady_clock::now() + time;
  for (;;) {
    const auto left = std::max(nanoseconds{0}, nanoseconds{deadline - steady_clock::now()});
    const auto whole = duration_cast<seconds>(left);
    const timespec limit{whole.count(), static_cast<long>((left - whole).count())};
    if (sigtimedwait(&signals_, nullptr, &limit) >= 0) return false;
    if (errno != EINTR) return true;
  }
}

}  // namespace tally
