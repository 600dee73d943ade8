#include "daemon/registry.h"

#include <new>

#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"

namespace tally {
namespace {

// Merges two chains (singly linked through next) that are sorted by due time; on a tie the record
// of `first` comes first.
CollectionRecord* merge_chains(CollectionRecord* first, CollectionRecord* second) {
  CollectionRecord* merged = nullptr;
  CollectionRecord** tail = &merged;
  while (first && second) {
    CollectionRecord*& from = second->schedule.next_due < first->schedule.next_due ? second : first;
    *tail = from;
    tail = &from->next;
    from = from->next;
  }
  *tail = first ? first : second;
  return merged;
}

// Sorts a chain by due time, keeping the order of equals.
CollectionRecord* sort_chain(CollectionRecord* chain) {
  if (!chain || !chain->next) return chain;
  CollectionRecord* middle = chain;
  for (const CollectionRecord* end = chain->next; end && end->next; end = end->next->next) {
    middle = middle->next;
  }
  CollectionRecord* second = middle->next;
  middle->next = nullptr;
  return merge_chains(sort_chain(chain), sort_chain(second));
}

}  // namespace

// clang's analysis cannot follow a lock that find() may release; it assumes that the lock is held
// to the end of the scope. `held_` knows better, so nothing is unlocked twice.
RegistryLock::RegistryLock(Registry& registry) : registry_(registry) {
  registry_.take();
}

RegistryLock::~RegistryLock() TALLY_NO_ANALYSIS {
  release();
}

void RegistryLock::retake() TALLY_NO_ANALYSIS {
  if (held_) return;
  registry_.take();
  held_ = true;
}

void RegistryLock::release() TALLY_NO_ANALYSIS {
  if (!held_) return;
  registry_.publish();
  held_ = false;
  registry_.mutex_.unlock();
}

void Registry::take() TALLY_NO_ANALYSIS {
  while (!mutex_.lock_within(kStopCheck)) {
    (void)stopping();  // if so, the holder notices and soon lets go
  }
}

void Registry::reset() {
  const RegistryLock lock(*this);
  head_ = CollectionRecord{};
}

void Registry::publish() {
  earliest_due_ = head_.next ? std::optional(head_.next->schedule.next_due) : std::nullopt;
}

void Registry::insert_in_order(CollectionRecord& record) {
  CollectionRecord* before = &head_;
  while (before->next && before->next->schedule.next_due < record.schedule.next_due) {
    before = before->next;
  }
  record.prev = before;
  record.next = before->next;
  if (record.next) record.next->prev = &record;
  before->next = &record;
  publish();  // a wake-up may follow before the lock is released
}

void Registry::unlink(CollectionRecord& record) {
  record.prev->next = record.next;
  if (record.next) record.next->prev = record.prev;
}

CollectionRecord* Registry::new_collection(std::uint32_t type, std::uint32_t index) {
  auto* record = new (std::nothrow) CollectionRecord;
  if (!record) {
    log_warning("Tallyd malloc() failure.");
    return nullptr;
  }
  record->type = type;
  record->index = index;
  record->schedule.last_viewed = schedule_seconds();
  record->schedule.next_due = record->schedule.last_viewed;
  remove_collection_files(type, index);
  insert_in_order(*record);
  wake_poll_task();
  return record;
}

CollectionRecord* Registry::find(RegistryLock& lock, std::uint32_t type, std::uint32_t index) {
  for (CollectionRecord* record = head_.next; record; record = record->next) {
    if (record->type == type && record->index == index) {
      lock.release();
      return record;
    }
  }
  return nullptr;
}

void Registry::re_sort() {
  const RegistryLock lock(*this);
  sort();
}

// An insertion pass walks from the second record to the end and moves each record that is due
// before its predecessor back past all that are due at the same time or later. With thousands of
// collections that is quadratic, so the same order is made differently: the records that would move
// are taken out, sorted with the later of two equals first, and merged in ahead of those that
// stayed.
void Registry::sort() {
  CollectionRecord* movers = nullptr;  // the last to move comes first
  CollectionRecord* latest = &head_;
  for (CollectionRecord* record = head_.next; record;) {
    CollectionRecord* next = record->next;
    if (record->schedule.next_due < latest->schedule.next_due) {
      latest->next = next;
      record->next = movers;
      movers = record;
    } else {
      latest = record;
    }
    record = next;
  }
  if (!movers) return;
  head_.next = merge_chains(sort_chain(movers), head_.next);
  for (CollectionRecord* record = &head_; record->next; record = record->next) {
    record->next->prev = record;
  }
}

void Registry::apply_interval() {
  const RegistryLock lock(*this);
  bool changed = false;
  for (CollectionRecord* record = head_.next; record; record = record->next) {
    changed |= tally::apply_interval(record->schedule, interval());
  }
  if (changed) sort();
}

void Registry::free_all() {
  const RegistryLock lock(*this);
  while (CollectionRecord* record = head_.next) {
    head_.next = record->next;
    delete record;
  }
}

void Registry::begin_pass() {
  const RegistryLock lock(*this);
  for (CollectionRecord* record = head_.next; record; record = record->next) {
    record->schedule.flags &= ~kPolledInThisPass;
  }
}

unsigned Registry::sweep(std::int32_t interval,
                         const std::function<bool(const CollectionRecord&)>& poll) {
  unsigned polled = 0;
  const std::int32_t now = schedule_seconds();
  const RegistryLock lock(*this);
  // Due times change on the way and the list is only sorted afterwards, so a flag marks the records
  // that were polled.
  for (CollectionRecord* record = head_.next; record; record = record->next) {
    Schedule& schedule = record->schedule;
    if ((schedule.flags & kPolledInThisPass) != 0) continue;
    if (schedule.next_due > now || stopping()) break;
    plan_next_poll(schedule, now, interval);
    const bool go_on = poll(*record);
    schedule.flags |= kPolledInThisPass;
    ++polled;
    if (!go_on) break;
  }
  sort();
  return polled;
}

bool Registry::adopt(std::uint32_t type, std::uint32_t index) {
  RegistryLock lock(*this);
  return find(lock, type, index) || new_collection(type, index);
}

void Registry::list(std::FILE* out, std::int32_t now) {
  const RegistryLock lock(*this);
  for (const CollectionRecord* record = head_.next; record; record = record->next) {
    std::fprintf(out, "\nINDEX: %lu, COLLECTION: ", static_cast<unsigned long>(record->index));
    std::fputs(listing_name(record->type), out);
    const auto since = static_cast<std::uint32_t>(seconds_between(record->schedule.last_poll, now));
    const auto until = static_cast<std::uint32_t>(seconds_between(now, record->schedule.next_due));
    std::fprintf(out, "\n   Time Since Last Poll: %lu, Time Until Next Poll: %lu",
                 static_cast<unsigned long>(since), static_cast<unsigned long>(until));
  }
  std::fputs("\n", out);
}

}  // namespace tally
