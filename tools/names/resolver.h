// Names of addresses from DNS, asked for beside whoever shows rows.
#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace tally {

// Resolver asks with a few threads, which the end of the process ends wherever they are. It
// remembers the answers, also that there is none, of the first 4096 addresses; others have no
// names.
class Resolver {
 public:
  Resolver();

  // name returns what is known by now of an address, written as rows write it; empty: nothing yet,
  // or it has no name. The first call asks.
  std::string name(const std::string& address) const;

  // wait returns when everything asked is answered, or when the time is over.
  void wait(std::chrono::milliseconds patience) const;

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the threads
};

}  // namespace tally
