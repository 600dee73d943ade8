#include "names/makers.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

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
  std::optional<FileStamp> stamp;
  for (auto path = paths_.begin(); path != paths_.end() && !stamp; ++path) {
    path_ = *path;
    stamp = stamp_of(path_);
  }
  if (stamp == std::exchange(stamp_, stamp)) return;
  makers_.clear();
  read_ = !stamp;
}

void Makers::read() const {
  read_ = true;
  for_each_line(path_, kLargestFile, [&](std::string_view line) {
    if (!line.starts_with(kRegistry)) return;
    line.remove_prefix(kRegistry.size());
    std::uint32_t prefix = 0;
    const char* const end = line.data() + std::min(line.find(','), line.size());
    if (end != line.data() + kPrefixDigits ||
        std::from_chars(line.data(), end, prefix, 16).ptr != end) {
      return;
    }
    std::string name = shortened(line.substr(std::min(kPrefixDigits + 1, line.size())));
    if (!name.empty()) makers_.push_back({prefix, std::move(name)});
  });
  std::ranges::stable_sort(makers_, {}, &Maker::prefix);
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
