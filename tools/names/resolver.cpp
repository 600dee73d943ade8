#include "names/resolver.h"

#include <netdb.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "names/name_file.h"
#include "records/cell_text.h"

namespace tally {
namespace {

constexpr std::size_t kThreads = 8;
constexpr std::size_t kMostAddresses = 4096;

// ask waits for the system's resolver for as long as that takes.
std::string ask(const std::string& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), nullptr, &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> socket(found, freeaddrinfo);
  char name[NI_MAXHOST];
  if (getnameinfo(socket->ai_addr, socket->ai_addrlen, name, sizeof name, nullptr, 0,
                  NI_NAMEREQD) != 0) {
    return {};
  }
  std::string text = printable(name);
  return text.size() <= kLongestName ? text : "";
}

}  // namespace

struct Resolver::State {
  std::mutex mutex;
  std::condition_variable asked;
  std::condition_variable answered;
  std::unordered_map<std::string, std::string> names;
  std::deque<std::string> queue;
  std::size_t open = 0;  // asked and not answered
};

Resolver::Resolver() : state_(std::make_shared<State>()) {
  for (std::size_t i = 0; i < kThreads; ++i) {
    std::thread([state = state_] {
      std::unique_lock lock(state->mutex);
      for (;;) {
        state->asked.wait(lock, [&] { return !state->queue.empty(); });
        const std::string address = std::move(state->queue.front());
        state->queue.pop_front();
        lock.unlock();
        std::string name = ask(address);
        lock.lock();
        state->names[address] = std::move(name);
        if (--state->open == 0) state->answered.notify_all();
      }
    }).detach();
  }
}

std::string Resolver::name(const std::string& address) const {
  const std::lock_guard lock(state_->mutex);
  if (const auto known = state_->names.find(address); known != state_->names.end()) {
    return known->second;
  }
  if (state_->names.size() == kMostAddresses) return {};
  state_->names.emplace(address, "");
  state_->queue.push_back(address);
  ++state_->open;
  state_->asked.notify_one();
  return {};
}

void Resolver::wait(std::chrono::milliseconds patience) const {
  std::unique_lock lock(state_->mutex);
  (void)state_->answered.wait_for(lock, patience,  // what came by then is shown
                                  [&] { return state_->open == 0; });
}

}  // namespace tally
