// Variable-length byte strings of the agent's records: addresses and owner names.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

namespace tally {

// ByteList holds an address of any length. On the wire it is a counted array of unsigned chars,
// one 4-byte unit each (RFC 4506, 4.13). Up to 20 bytes, which is every MAC and network address,
// stay in place; longer ones, which only a broken agent sends, live on the heap.
class ByteList {
 public:
  static constexpr std::uint32_t kInPlace = 20;

  ByteList() = default;
  explicit ByteList(std::span<const std::uint8_t> bytes) { assign(bytes); }
  ByteList(const ByteList& other) { assign(other.bytes()); }
  ByteList(ByteList&& other) noexcept { *this = std::move(other); }
  ByteList& operator=(const ByteList& other) {
    if (this != &other) assign(other.bytes());
    return *this;
  }
  ByteList& operator=(ByteList&& other) noexcept {
    count_ = std::exchange(other.count_, 0);
    in_place_ = std::exchange(other.in_place_, {});
    heap_ = std::move(other.heap_);
    return *this;
  }
  ~ByteList() = default;

  std::uint32_t size() const { return count_; }
  std::span<const std::uint8_t> bytes() const { return {padded(), count_}; }

  // first returns at most the first `limit` bytes.
  std::span<const std::uint8_t> first(std::uint32_t limit) const {
    return bytes().first(count_ < limit ? count_ : limit);
  }

  // assign copies the bytes; they must not be this list's own.
  void assign(std::span<const std::uint8_t> bytes) {
    std::uint8_t* to = resize(static_cast<std::uint32_t>(bytes.size()));
    if (!bytes.empty()) std::memcpy(to, bytes.data(), bytes.size());
  }

  // padded returns the bytes, followed by zeros up to kInPlace.
  const std::uint8_t* padded() const { return heap_ ? heap_.get() : in_place_.data(); }

  // resize makes room for `count` bytes and returns where they go; what stood there is lost.
  std::uint8_t* resize(std::uint32_t count) {
    if (count <= kInPlace) {
      if (heap_) heap_.reset();
      count_ = count;
      in_place_ = {};
      return in_place_.data();
    }
    heap_ = std::make_unique_for_overwrite<std::uint8_t[]>(count);
    count_ = count;
    return heap_.get();
  }

  friend bool operator==(const ByteList& a, const ByteList& b) {
    return a.count_ == b.count_ &&
           (a.count_ == 0 || std::memcmp(a.bytes().data(), b.bytes().data(), a.count_) == 0);
  }

 private:
  std::uint32_t count_ = 0;
  std::array<std::uint8_t, kInPlace> in_place_{};
  std::unique_ptr<std::uint8_t[]> heap_;
};

// ByteVector20 is a fixed field of 20 address bytes: 20 XDR units, no count.
using ByteVector20 = std::array<std::uint8_t, 20>;

// WireString is an XDR string<255>: any text of the agent, such as an owner's name. There may be
// zeros among its bytes, and none follows them.
struct WireString {
  static constexpr std::uint32_t kMost = 255;

  std::uint32_t length = 0;
  std::array<char, kMost> text{};

  std::string_view view() const { return {text.data(), length}; }

  friend bool operator==(const WireString& a, const WireString& b) { return a.view() == b.view(); }
};

}  // namespace tally
