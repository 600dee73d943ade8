#include "console/wait.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cstring>

namespace tally {

Signals::Signals(std::function<void()> stop) : stop_(std::move(stop)) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, &before_);
  fd_.reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Signals::~Signals() {
  take();  // what came meanwhile must not end the process after all
  if (!ended_) sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool Signals::take() {
  bool stop = false;
  signalfd_siginfo info{};
  while (read(fd_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo == SIGWINCH) continue;
    (info.ssi_signo == SIGTSTP ? stop : ended_) = true;
  }
  return stop;
}

bool Signals::ended() {
  if (take() && !ended_) stop_();
  return ended_;
}

FileEvents::FileEvents(const std::string& directory)
    : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  constexpr std::uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
  if (fd_ && inotify_add_watch(fd_.get(), directory.c_str(), kEvents | IN_ONLYDIR) < 0) fd_.reset();
}

FileEvents::Changes FileEvents::take() const {
  Changes changes;
  alignas(inotify_event) char buffer[8192];
  ssize_t got = 0;
  while (fd_ && (got = read(fd_.get(), buffer, sizeof buffer)) > 0) {
    for (const char* at = buffer; at < buffer + got;) {
      inotify_event event;
      std::memcpy(&event, at, sizeof event);
      if ((event.mask & (IN_Q_OVERFLOW | IN_IGNORED)) != 0) changes.any_file = true;
      if (event.len != 0) changes.names.emplace_back(at + sizeof event);
      at += sizeof event + event.len;
    }
  }
  return changes;
}

void wait_for(const std::vector<int>& descriptors, std::chrono::milliseconds time) {
  std::vector<pollfd> polled;
  polled.reserve(descriptors.size());
  for (const int fd : descriptors) polled.push_back({fd, POLLIN, 0});
  const auto limit = std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, 1 << 30);
  (void)poll(polled.data(), polled.size(), static_cast<int>(limit));  // the callers look again
}

}  // namespace tally
