// Counters by key, in bounded memory.
//
// A full table drops the row that has gone unseen for longest. Counting a known key costs one hash
// look-up and no memory; reading goes in ascending order of the keys' bytes. New keys are sorted
// in when somebody reads, so a burst of them costs only what is read. Not thread-safe.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "minitapd/table_entry.h"

namespace minitapd {

template <std::size_t kKeyBytes, std::size_t kCounters>
class AgingTable {
 public:
  using Key = std::array<std::uint8_t, kKeyBytes>;
  using Entry = TableEntry<kCounters>;

  // Holds at most `max_rows` (2 or more) rows.
  explicit AgingTable(std::size_t max_rows) : max_rows_(max_rows) {}
  AgingTable(const AgingTable&) = delete;
  AgingTable& operator=(const AgingTable&) = delete;

  // touch finds or makes the row of a key, which becomes the one seen last. `now` is remembered
  // for a new row and for one that is dropped. The reference lives until the next touch.
  Entry& touch(const Key& key, std::uint32_t now) {
    const std::uint64_t hash = hash_of(key);
    if (const Slot known = slot_of(key, hash); known != kNone) {
      if (known != newest_) {
        unlink(known);
        link_newest(known);
      }
      return nodes_[known].entry;
    }
    const Slot slot = nodes_.size() < max_rows_ ? add_node() : reuse_oldest(now);
    Node& node = nodes_[slot];
    node.key = key;
    node.entry = {.counters = {}, .ordinal = ++inserts_, .created = now};
    Slot& head = buckets_[bucket_of(hash)];
    node.next_in_bucket = head;
    head = slot;
    link_newest(slot);
    if (!node.waits_for_order) unordered_.push_back(slot);
    node.waits_for_order = true;
    return node.entry;
  }

  // find returns the row of a key, or null. The order in which rows were seen stays as it is.
  Entry* find(const Key& key) {
    const Slot known = slot_of(key, hash_of(key));
    return known == kNone ? nullptr : &nodes_[known].entry;
  }

  // for_each_after calls visit(key, entry) for up to `limit` rows behind `start`, or from the first
  // row when it is null.
  template <class Visit>
  void for_each_after(const Key* start, std::size_t limit, Visit visit) {
    for (const Slot slot : unordered_) {
      nodes_[slot].waits_for_order = false;
      order_.insert(slot);
    }
    unordered_.clear();
    auto row = start == nullptr ? order_.begin() : order_.upper_bound(*start);
    for (; limit > 0 && row != order_.end(); ++row, --limit) {
      visit(nodes_[*row].key, nodes_[*row].entry);
    }
  }

  [[nodiscard]] TableUse use() const {
    return {.rows = nodes_.size(),
            .inserts = inserts_,
            .deletes = inserts_ - static_cast<std::uint32_t>(nodes_.size()),
            .last_delete = last_delete_};
  }

 private:
  using Slot = std::uint32_t;  // a place in nodes_
  static constexpr Slot kNone = 0xffffffffU;

  struct Node {
    Key key{};
    bool waits_for_order = false;
    Slot next_in_bucket = kNone;
    Slot older = kNone;
    Slot newer = kNone;
    Entry entry;
  };

  struct ByKey {
    using is_transparent = void;
    const std::vector<Node>* nodes;
    bool operator()(Slot a, Slot b) const { return (*nodes)[a].key < (*nodes)[b].key; }
    bool operator()(const Key& a, Slot b) const { return a < (*nodes)[b].key; }
    bool operator()(Slot a, const Key& b) const { return (*nodes)[a].key < b; }
  };

  // The keys come from the network; the random start keeps their senders from choosing collisions.
  [[nodiscard]] std::uint64_t hash_of(const Key& key) const {
    std::uint64_t hash = seed_;
    for (std::size_t at = 0; at < kKeyBytes; at += 8) {
      std::uint64_t part = 0;
      std::memcpy(&part, key.data() + at, std::min<std::size_t>(8, kKeyBytes - at));
      hash ^= hash >> 32;
      hash = (hash ^ part) * 0x9e3779b97f4a7c15U;
    }
    return hash;
  }

  // Only the highest bits of a product depend on all bits of its factors.
  [[nodiscard]] std::size_t bucket_of(std::uint64_t hash) const { return hash >> bucket_shift_; }

  [[nodiscard]] Slot slot_of(const Key& key, std::uint64_t hash) const {
    Slot slot = buckets_[bucket_of(hash)];
    while (slot != kNone && nodes_[slot].key != key) slot = nodes_[slot].next_in_bucket;
    return slot;
  }

  Slot add_node() {
    if (nodes_.size() == buckets_.size()) {
      buckets_.assign(2 * buckets_.size(), kNone);
      --bucket_shift_;
      for (Slot slot = 0; slot < nodes_.size(); ++slot) {
        Slot& head = buckets_[bucket_of(hash_of(nodes_[slot].key))];
        nodes_[slot].next_in_bucket = head;
        head = slot;
      }
    }
    nodes_.emplace_back();
    return static_cast<Slot>(nodes_.size() - 1);
  }

  Slot reuse_oldest(std::uint32_t now) {
    const Slot slot = oldest_;
    Node& node = nodes_[slot];
    if (!node.waits_for_order) order_.erase(slot);
    unlink(slot);
    Slot* link = &buckets_[bucket_of(hash_of(node.key))];
    while (*link != slot) link = &nodes_[*link].next_in_bucket;
    *link = node.next_in_bucket;
    last_delete_ = now;
    return slot;
  }

  void link_newest(Slot slot) {
    nodes_[slot].older = newest_;
    nodes_[slot].newer = kNone;
    (newest_ == kNone ? oldest_ : nodes_[newest_].newer) = slot;
    newest_ = slot;
  }

  void unlink(Slot slot) {
    const Node& node = nodes_[slot];
    (node.newer == kNone ? newest_ : nodes_[node.newer].older) = node.older;
    (node.older == kNone ? oldest_ : nodes_[node.older].newer) = node.newer;
  }

  std::size_t max_rows_;
  std::uint64_t seed_ = std::random_device{}() | std::uint64_t{std::random_device{}()} << 32;
  std::vector<Node> nodes_;
  std::vector<Slot> buckets_ = std::vector<Slot>(64, kNone);  // chains through next_in_bucket
  int bucket_shift_ = 64 - 6;                                 // there are 2^(64 - it) buckets
  std::set<Slot, ByKey> order_{ByKey{&nodes_}};
  std::vector<Slot> unordered_;  // those of nodes_ that are not in order_
  Slot newest_ = kNone;
  Slot oldest_ = kNone;
  std::uint32_t inserts_ = 0;
  std::uint32_t last_delete_ = 0;
};

}  // namespace minitapd
