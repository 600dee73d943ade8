// The registry: every agent collection that users asked for, sorted by when it is due.
//
// The main thread changes the list and is the only one to free records; the poll task sweeps it
// with the lock held. Times are whole seconds since the epoch. Order among equal times is
// behaviour: the newer record comes first. The registry's lock comes before the poll task's mutex
// where both are taken.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>

#include "daemon/base/collection_record.h"
#include "daemon/base/mutex.h"
#include "daemon/base/thread_entry.h"
#include "files/collection_ops.h"
#include "files/poll_task.h"

namespace tally {

class RegistryLock;

// Registry has process lifetime: it is never destroyed, because the poll task still runs while the
// process ends.
class Registry final : public DueList, public Adopter {
 public:
  // The waker is the poll task's thread entry.
  explicit Registry(ThreadEntry& poll_task) : poll_task_(poll_task) {}
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // reset empties the list; used once, at start-up.
  void reset();

  // insert_in_order links a record before the first one that is due at the same time or later.
  void insert_in_order(CollectionRecord& record) TALLY_REQUIRES(mutex_);

  // unlink takes a record out of the list.
  void unlink(CollectionRecord& record) TALLY_REQUIRES(mutex_);

  // new_collection adds a collection that is due now, with its files removed, and wakes the poll
  // task. Null when there is no memory (logs).
  CollectionRecord* new_collection(std::uint32_t type, std::uint32_t index) TALLY_REQUIRES(mutex_);

  // find returns the collection, or null. On a hit it gives up the caller's lock: see
  // RegistryLock. The record stays good for the main thread, but a caller that changes it takes
  // the lock again first.
  CollectionRecord* find(RegistryLock& lock, std::uint32_t type, std::uint32_t index)
      TALLY_REQUIRES(mutex_);

  // re_sort sorts the list by due time, into the order that one insertion pass gives.
  void re_sort() TALLY_EXCLUDES(mutex_);

  // apply_interval moves the next poll of every viewed collection to the interval's end.
  void apply_interval() TALLY_EXCLUDES(mutex_);

  // free_all frees every record.
  void free_all() TALLY_EXCLUDES(mutex_);

  // wake_poll_task makes the poll task look at the list.
  void wake_poll_task() { poll_task_.wake(); }

  // list prints every collection in list order: a diagnostic for debuggers and tests.
  void list(std::FILE* out, std::int32_t now) TALLY_EXCLUDES(mutex_);

  // DueList, for the poll task.
  std::optional<std::int32_t> earliest_due() const override;
  std::int32_t interval() const override { return interval_.load(); }
  void begin_pass() override TALLY_EXCLUDES(mutex_);
  unsigned sweep(std::int32_t interval,
                 const std::function<bool(const CollectionRecord&)>& poll) override
      TALLY_EXCLUDES(mutex_);

  // Adopter, for the scan of the control tables.
  bool adopt(std::uint32_t type, std::uint32_t index) override TALLY_EXCLUDES(mutex_);

  // set_interval stores the interval. The next polls stay where they are.
  void set_interval(std::int32_t seconds) { interval_.store(seconds); }

 private:
  friend class RegistryLock;

  // No collection, in earliest_due_.
  static constexpr std::int64_t kNoCollection = std::numeric_limits<std::int64_t>::min();

  // take waits for the lock. The poll task may hold it for as long as a slow agent takes; the main
  // thread, while it waits here, sees a terminate message that waits in the pipe.
  void take() TALLY_ACQUIRE(mutex_);

  void sort() TALLY_REQUIRES(mutex_);

  // publish makes the due time of the first record known to those who do not hold the lock.
  void publish() TALLY_REQUIRES(mutex_);

  Mutex mutex_;
  CollectionRecord head_ TALLY_GUARDED_BY(mutex_);  // its next_due of 0 sorts before all
  std::atomic<std::int64_t> earliest_due_{kNoCollection};
  std::atomic<std::int32_t> interval_{kDefaultInterval};
  ThreadEntry& poll_task_;
};

// RegistryLock holds the registry's lock for a scope, or until find() has given it up.
class TALLY_SCOPED_CAPABILITY RegistryLock {
 public:
  explicit RegistryLock(Registry& registry) TALLY_ACQUIRE(registry.mutex_);
  ~RegistryLock() TALLY_RELEASE();
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

  // retake takes the lock again when find() has given it up.
  void retake();

 private:
  friend class Registry;

  // release gives up the lock when it is held, and publishes when the first collection is due.
  void release();

  Registry& registry_;
  bool held_ = true;
};

}  // namespace tally
