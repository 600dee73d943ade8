#include "names/makers.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "names/name_file.h"
#include "records/cell_text.h"

namespace tally {
namespace {

constexpr std::size_t kLargestFile = 16 << 20;
constexpr std::string_view kRegistry = "MA-L,";
constexpr std::size_t kPrefixDigits = 6;
constexpr std::size_t kMakerRoom = 16;  // characters

// The bits of the first octet that say that no maker gave the address (IEEE 802).
constexpr unsigned char kGroup = 1;
constexpr unsigned char kLocal = 2;

// shortened takes the words of a maker's name that have room, up to a comma: what follows is the
// form of the company.
std::string shortened(std::string_view name) {
  if (name.starts_with('"')) name.remove_prefix(1);
  name = name.substr(0, name.find_first_of(",\""));
  if (name.size() > kMakerRoom) {
    const std::size_t end = name.rfind(' ', kMakerRoom);
    name = name.substr(0, end == std::string_view::npos ? kMakerRoom : end);
  }
  name.remove_suffix(name.size() - (name.find_last_not_of(' ') + 1));
  return name.empty() ? "" : printable(name);
}

}  // namespace

void Makers::refresh() {
  if (!read_) return;
  for (const std::string& path : paths_) {
    const auto stamp = stamp_of(path);
    if (!stamp) continue;
    read_ = stamp == stamp_;
    return;
  }
  read_ = !stamp_;
}

void Makers::read() const {
  read_ = true;
  makers_.clear();
  stamp_.reset();
  for (const std::string& path : paths_) {
    stamp_ = stamp_of(path);
    if (!stamp_) continue;
    const std::string bytes = read_whole(path, kLargestFile);
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
      std::string_view line = std::string_view(bytes).substr(at, end - at);
      at = end + 1;
      if (!line.starts_with(kRegistry)) continue;
      line.remove_prefix(kRegistry.size());
      const std::size_t comma = line.find(',');
      std::uint32_t prefix = 0;
      const char* digits = line.data();
      if (comma != kPrefixDigits ||
          std::from_chars(digits, digits + comma, prefix, 16).ptr != digits + comma) {
        continue;
      }
      std::string name = shortened(line.substr(comma + 1));
      if (!name.empty()) makers_.push_back({prefix, std::move(name)});
    }
    std::ranges::stable_sort(makers_, {}, &Maker::prefix);
    return;
  }
}

std::string Makers::maker_of(std::span<const unsigned char> mac) const {
  if ((mac[0] & (kGroup | kLocal)) != 0) return {};
  if (!read_) read();
  const std::uint32_t prefix =
      std::uint32_t{mac[0]} << 16 | std::uint32_t{mac[1]} << 8 | std::uint32_t{mac[2]};
  const auto found = std::ranges::lower_bound(makers_, prefix, {}, &Maker::prefix);
  return found == makers_.end() || found->prefix != prefix ? "" : found->name;
}

}  // namespace tally
