// Counters by key, in bounded memory.
//
// A full table lets the row go that was not seen for longest. Counting a known key costs one hash
// look-up; reading goes in ascending order of the keys' bytes. Not thread-safe.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <unordered_map>

namespace minitapd {

template <std::size_t kKeyBytes, std::size_t kCounters>
class AgingTable {
 public:
  using Key = std::array<std::uint8_t, kKeyBytes>;
  struct Entry {
    std::array<std::uint64_t, kCounters> counters{};
    std::uint32_t ordinal = 0;  // the first row ever is 1
  };

  // Holds at most `max_rows` (2 or more) rows.
  explicit AgingTable(std::size_t max_rows) : max_rows_(max_rows) {}

  // touch finds or makes the row of a key, which is then the one last seen. `now` is remembered if
  // another row has to leave. The reference lives until the next touch.
  Entry& touch(const Key& key, std::uint32_t now) {
    if (const auto known = index_.find(key); known != index_.end()) {
      Node& node = known->second->second;
      recent_.splice(recent_.begin(), recent_, node.recent);
      return node.entry;
    }
    if (rows_.size() >= max_rows_) {
      const auto oldest = recent_.back();
      recent_.pop_back();
      index_.erase(oldest->first);
      rows_.erase(oldest);
      last_delete_ = now;
    }
    const auto row = rows_.try_emplace(key).first;
    recent_.push_front(row);
    row->second.recent = recent_.begin();
    row->second.entry.ordinal = ++made_;
    index_.emplace(key, row);
    return row->second.entry;
  }

  // find returns the row of a key without making it the one last seen, or null.
  Entry* find(const Key& key) {
    const auto known = index_.find(key);
    return known == index_.end() ? nullptr : &known->second->second.entry;
  }

  // for_each_after calls visit(key, entry) for up to `limit` rows behind `start`, or from the first
  // row when it is null.
  template <class Visit>
  void for_each_after(const Key* start, std::size_t limit, Visit visit) const {
    auto row = start == nullptr ? rows_.begin() : rows_.upper_bound(*start);
    for (; limit > 0 && row != rows_.end(); ++row, --limit) visit(row->first, row->second.entry);
  }

  [[nodiscard]] std::size_t size() const { return rows_.size(); }
  [[nodiscard]] std::uint32_t last_delete() const { return last_delete_; }

 private:
  struct Node;
  using Rows = std::map<Key, Node>;
  struct Node {
    Entry entry;
    typename std::list<typename Rows::iterator>::iterator recent;
  };
  // The keys come from the network; the random start keeps their senders from choosing collisions.
  struct Hash {
    std::uint64_t seed = std::random_device{}() | std::uint64_t{std::random_device{}()} << 32;
    std::size_t operator()(const Key& key) const {
      std::uint64_t hash = seed;
      for (std::size_t at = 0; at < kKeyBytes; at += 8) {
        std::uint64_t part = 0;
        std::memcpy(&part, key.data() + at, std::min<std::size_t>(8, kKeyBytes - at));
        hash = (hash ^ part) * 0x9e3779b97f4a7c15U;
        hash ^= hash >> 32;
      }
      return hash;
    }
  };

  std::size_t max_rows_;
  Rows rows_;
  std::unordered_map<Key, typename Rows::iterator, Hash> index_;
  std::list<typename Rows::iterator> recent_;  // last seen first
  std::uint32_t made_ = 0;
  std::uint32_t last_delete_ = 0;
};

}  // namespace minitapd
