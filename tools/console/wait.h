// What long-running commands wait for: signals, and changes of files.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "files/unique_fd.h"

namespace tally {

// Signals holds back the signals that end a command (SIGINT, SIGTERM, SIGHUP), that stop it
// (SIGTSTP) and that tell of another terminal size (SIGWINCH, which just wakes it up), so that the
// command can act in its own way: `stop` is what it does to be stopped. Once a signal has ended the
// command they stay held back: a second one, as timeout(1) sends to the whole process group, must
// not change how the process exits. For single-threaded programs.
class Signals {
 public:
  explicit Signals(std::function<void()> stop = [] { (void)raise(SIGSTOP); });
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  int fd() const { return fd_.get(); }  // readable when there is one

  // ended takes the signals that came, and tells whether the command is to end. It never waits but
  // for the end of a stop.
  bool ended();

 private:
  bool take();  // tells whether there is a stop among them

  std::function<void()> stop_;
  sigset_t before_;
  bool ended_ = false;
  UniqueFd fd_;
};

// FileEvents tells which files of a directory were written, renamed or removed (inotify).
class FileEvents {
 public:
  explicit FileEvents(const std::string& directory);

  // fd is -1 when the system does not tell; then one has to look from time to time.
  int fd() const { return fd_.get(); }

  struct Changes {
    bool any_file = false;  // too much happened: any file may have changed
    std::vector<std::string> names;
  };
  Changes take() const;  // never waits

 private:
  UniqueFd fd_;
};

// wait_for waits until one of the descriptors can be read or the time is over; -1 stands for none.
void wait_for(const std::vector<int>& descriptors, std::chrono::milliseconds time);

// Deadline is a moment that never comes when there are no seconds.
class Deadline {
 public:
  explicit Deadline(std::chrono::seconds after) {
    if (after.count() != 0) moment_ = std::chrono::steady_clock::now() + after;
  }
  bool over() const { return moment_ && std::chrono::steady_clock::now() >= *moment_; }

 private:
  std::optional<std::chrono::steady_clock::time_point> moment_;
};

}  // namespace tally
