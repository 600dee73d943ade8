#include "daemon/registry.h"

#include <algorithm>
#include <new>
#include <utility>

#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "files/file_format.h"

namespace tally {
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

void Registry::publish() {
  earliest_due_ = records_.empty() ? kNoCollection : records_.front().schedule.next_due;
}

std::optional<std::int32_t> Registry::earliest_due() const {
  const std::int64_t due = earliest_due_;
  return due == kNoCollection ? std::nullopt : std::optional(static_cast<std::int32_t>(due));
}

void Registry::insert_in_order(CollectionRecords record) {
  const std::int32_t due = record.front().schedule.next_due;
  const auto place =
      std::find_if(records_.begin(), records_.end(),
                   [due](const CollectionRecord& other) { return other.schedule.next_due >= due; });
  records_.splice(place, record);
  publish();  // a wake-up may follow before the lock is released
}

CollectionRecords Registry::unlink(const CollectionRecord& record) {
  CollectionRecords unlinked;
  unlinked.splice(unlinked.begin(), records_,
                  std::find_if(records_.begin(), records_.end(),
                               [&](const CollectionRecord& other) { return &other == &record; }));
  return unlinked;
}

CollectionRecord* Registry::new_collection(std::uint32_t type, std::uint32_t index) {
  CollectionRecords fresh;
  try {
    fresh.emplace_back();
  } catch (const std::bad_alloc&) {
    log_warning("Tallyd malloc() failure.");
    return nullptr;
  }
  CollectionRecord& record = fresh.front();
  record.type = type;
  record.index = index;
  record.schedule.last_viewed = schedule_seconds();
  record.schedule.next_due = record.schedule.last_viewed;
  remove_collection_files(type, index);
  insert_in_order(std::move(fresh));
  wake_poll_task();
  return &record;
}

CollectionRecord* Registry::find(RegistryLock& lock, std::uint32_t type, std::uint32_t index) {
  for (CollectionRecord& record : records_) {
    if (record.type == type && record.index == index) {
      lock.release();
      return &record;
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
  const auto earlier = [](const CollectionRecord& a, const CollectionRecord& b) {
    return a.schedule.next_due < b.schedule.next_due;
  };
  CollectionRecords movers;  // the last to move comes first
  auto latest = records_.begin();
  for (auto record = latest; record != records_.end();) {
    const auto at = record++;
    if (earlier(*at, *latest)) {
      movers.splice(movers.begin(), records_, at);
    } else {
      latest = at;
    }
  }
  movers.sort(earlier);
  movers.merge(records_, earlier);
  records_.swap(movers);
}

void Registry::apply_interval() {
  const RegistryLock lock(*this);
  bool changed = false;
  for (CollectionRecord& record : records_) {
    changed |= tally::apply_interval(record.schedule, interval());
  }
  if (changed) sort();
}

void Registry::free_all() {
  const RegistryLock lock(*this);
  records_.clear();
}

void Registry::begin_pass() {
  const RegistryLock lock(*this);
  for (CollectionRecord& record : records_) record.schedule.flags &= ~kPolledInThisPass;
}

unsigned Registry::sweep(std::int32_t interval,
                         const std::function<bool(const CollectionRecord&)>& poll) {
  unsigned polled = 0;
  const std::int32_t now = schedule_seconds();
  const RegistryLock lock(*this);
  // Due times change on the way and the list is only sorted afterwards, so a flag marks the records
  // that were polled.
  for (CollectionRecord& record : records_) {
    Schedule& schedule = record.schedule;
    if ((schedule.flags & kPolledInThisPass) != 0) continue;
    if (schedule.next_due > now || stopping()) break;
    plan_next_poll(schedule, now, interval);
    const bool go_on = poll(record);
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
  for (const CollectionRecord& record : records_) {
    std::fprintf(out, "\nINDEX: %lu, COLLECTION: ", static_cast<unsigned long>(record.index));
    std::fputs(listing_name(record.type), out);
    const auto since = static_cast<std::uint32_t>(seconds_between(record.schedule.last_poll, now));
    const auto until = static_cast<std::uint32_t>(seconds_between(now, record.schedule.next_due));
    std::fprintf(out, "\n   Time Since Last Poll: %lu, Time Until Next Poll: %lu",
                 static_cast<unsigned long>(since), static_cast<unsigned long>(until));
  }
  std::fputs("\n", out);
}

}  // namespace tally
