// The registry: every agent collection that users asked for, sorted by when it is due.
//
// The main thread changes the list and is the only one to free records; the poll task sweeps it
// with the lock held. Times are seconds of the schedule clock (daemon/base/clock.h). Among equal
// times the newer record comes first, which users can see. Take the registry's lock before the poll
// task's mutex.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <list>
#include <optional>

#include "daemon/base/collection_record.h"
#include "daemon/base/mutex.h"
#include "daemon/base/thread_entry.h"
#include "files/collection_ops.h"
#include "files/poll_task.h"

namespace tally {

class RegistryLock;

// Records stay where they are in memory while they move within a list, or from one to another.
using CollectionRecords = std::list<CollectionRecord>;

// Registry is never destroyed, because the poll task still runs while the process exits.
class Registry final : public DueList, public Adopter {
 public:
  // `poll_task` is the thread entry to wake.
  explicit Registry(ThreadEntry& poll_task) : poll_task_(poll_task) {}
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // insert_in_order links a record, which comes as a list of one, before the first one that is due
  // at the same time or later.
  void insert_in_order(CollectionRecords record) TALLY_REQUIRES(mutex_);

  // unlink takes a record out of the list. It is freed with the list of one that is returned.
  CollectionRecords unlink(const CollectionRecord& record) TALLY_REQUIRES(mutex_);

  // new_collection adds a collection that is due now, removes any old files of it and wakes the
  // poll task. Null when out of memory (logs).
  CollectionRecord* new_collection(std::uint32_t type, std::uint32_t index) TALLY_REQUIRES(mutex_);

  // find returns the collection, or null. On a hit it releases the caller's lock (see
  // RegistryLock). The record stays valid on the main thread, but retake the lock before changing
  // it.
  CollectionRecord* find(RegistryLock& lock, std::uint32_t type, std::uint32_t index)
      TALLY_REQUIRES(mutex_);

  // re_sort sorts the list by due time, in the order that one insertion pass gives.
  void re_sort() TALLY_EXCLUDES(mutex_);

  // apply_interval makes every viewed collection due one interval after its last poll.
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

  // set_interval stores the interval and reschedules nothing.
  void set_interval(std::int32_t seconds) { interval_.store(seconds); }

 private:
  friend class RegistryLock;

  // Stands in earliest_due_ for an empty list.
  static constexpr std::int64_t kNoCollection = std::numeric_limits<std::int64_t>::min();

  // take acquires the lock. The poll task may hold it while it waits for a slow agent, so the main
  // thread keeps looking for a terminate message meanwhile.
  void take() TALLY_ACQUIRE(mutex_);

  void sort() TALLY_REQUIRES(mutex_);

  // publish makes the first record's due time readable without the lock.
  void publish() TALLY_REQUIRES(mutex_);

  Mutex mutex_;
  CollectionRecords records_ TALLY_GUARDED_BY(mutex_);
  std::atomic<std::int64_t> earliest_due_{kNoCollection};
  std::atomic<std::int32_t> interval_{kDefaultInterval};
  ThreadEntry& poll_task_;
};

// RegistryLock holds the registry's lock for a scope, or until find() releases it.
class TALLY_SCOPED_CAPABILITY RegistryLock {
 public:
  explicit RegistryLock(Registry& registry) TALLY_ACQUIRE(registry.mutex_);
  ~RegistryLock() TALLY_RELEASE();
  RegistryLock(const RegistryLock&) = delete;
  RegistryLock& operator=(const RegistryLock&) = delete;

  // retake acquires the lock again if find() released it.
  void retake();

 private:
  friend class Registry;

  // release publishes the first due time and unlocks, if the lock is held.
  void release();

  Registry& registry_;
  bool held_ = true;
};

}  // namespace tally
