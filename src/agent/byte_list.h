// Variable-length byte strings of the agent's records: addresses and owner names.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tally {

// ByteList holds an address of any length. On the wire it is a counted array of unsigned chars,
// one 4-byte unit each (RFC 4506, 4.13). Up to 20 bytes, which is every MAC and network address,
// stay in place; longer ones, which only a broken agent sends, live on the heap. Lists are copied
// and never moved: one without its heap would not be as long as it says.
class ByteList {
 public:
  static constexpr std::uint32_t kInPlace = 20;

  ByteList() = default;
  explicit ByteList(std::span<const std::uint8_t> bytes) { assign(bytes); }
  ByteList(const ByteList&) = default;
  ByteList& operator=(const ByteList& other) {  // which gives the memory of a longer one back
    if (this != &other) assign(other.bytes());
    return *this;
  }
  ~ByteList() = default;

  std::uint32_t size() const { return count_; }
  std::span<const std::uint8_t> bytes() const { return {padded(), count_}; }

  // first returns at most the first `limit` bytes.
  std::span<const std::uint8_t> first(std::uint32_t limit) const {
    return bytes().first(std::min(count_, limit));
  }

  // assign copies the bytes; they must not be this list's own.
  void assign(std::span<const std::uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), resize(static_cast<std::uint32_t>(bytes.size())));
  }

  // padded returns the bytes, followed by zeros up to kInPlace.
  const std::uint8_t* padded() const { return heap_.empty() ? in_place_.data() : heap_.data(); }

  // resize makes room for `count` bytes and returns where they go; what stood there is lost.
  std::uint8_t* resize(std::uint32_t count) {
    count_ = 0;  // until the bytes are there, if memory runs out
    in_place_ = {};
    if (!heap_.empty()) std::vector<std::uint8_t>().swap(heap_);  // which gives its memory back
    if (count > kInPlace) heap_.resize(count);
    count_ = count;
    return heap_.empty() ? in_place_.data() : heap_.data();
  }

  friend bool operator==(const ByteList& a, const ByteList& b) {
    return std::ranges::equal(a.bytes(), b.bytes());
  }

 private:
  std::uint32_t count_ = 0;
  std::array<std::uint8_t, kInPlace> in_place_{};
  std::vector<std::uint8_t> heap_;
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
