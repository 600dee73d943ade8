// The agent poll task: one thread that polls every agent collection when it is due.
//
// It keeps a connection of its own to the agent and sleeps until the earliest collection is due or
// until the main thread wakes it. Polls run with the registry lock held, RPC and files included, so
// the main thread's handlers wait for them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "daemon/base/collection_record.h"
#include "files/collection_ops.h"

namespace tally {

// DueList is what the task needs from the registry.
class DueList {
 public:
  virtual ~DueList() = default;

  // earliest_due returns when the first collection is due, in seconds of the schedule clock, or
  // nothing when there is none. It does not take the registry lock, and shows every change made
  // before a wake-up.
  virtual std::optional<std::int32_t> earliest_due() const = 0;

  // interval returns the poll interval in seconds.
  virtual std::int32_t interval() const = 0;

  // begin_pass forgets which collections were polled.
  virtual void begin_pass() = 0;

  // sweep polls, with the registry lock held, every collection that is due and was not yet polled
  // in this pass, until `poll` returns false, and sorts the list again. Returns how many it polled.
  virtual unsigned sweep(std::int32_t interval,
                         const std::function<bool(const CollectionRecord&)>& poll) = 0;
};

// PollTask is what the thread works on (ThreadEntry::context).
struct PollTask {
  DueList& collections;
  Agent& agent;
};

// tapd_poll_task is the thread's routine; `entry` is its ThreadEntry. It tries for a quarter of an
// hour to reach the agent, then ends the thread (logs). Once connected it never returns: while the
// agent is away it keeps every sample, skips the polls and tries again.
void* tapd_poll_task(void* entry);

// A pass ends with a poll that took as long as a call to the agent may.
inline constexpr std::chrono::seconds kLongestPoll{25};

// poll_pass polls every collection that is due, or those up to one that took `longest`. The others
// stay due, ahead of those that it polled.
void poll_pass(DueList& collections, Agent& agent, std::chrono::seconds longest = kLongestPoll);

}  // namespace tally
