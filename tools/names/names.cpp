#include "names/names.h"

#include <arpa/inet.h>
#include <netinet/ether.h>

#include <algorithm>
#include <cstdlib>

#include "records/cell_text.h"
#include "records/collection_name.h"

namespace tally {
namespace {

constexpr const char* kFolder = "/etc/tallyd";
constexpr const char* kMakersFile = "/usr/share/ieee-data/oui.csv";

// The files of names in the folder.
constexpr std::pair<const char*, NameKind> kFiles[] = {
    {"protocols", NameKind::protocol},  {"vlans", NameKind::vlan},
    {"priorities", NameKind::priority}, {"groups", NameKind::group},
    {"ethers", NameKind::station},      {"hosts", NameKind::station}};

// More entries than this no file has that people keep; it bounds the memory.
constexpr std::size_t kMostNames = 65536;

// How long `await` waits for DNS: a second look is free, waiting is not.
constexpr std::chrono::milliseconds kPatience{2000};

// canonical writes an address of a file as rows write it; empty: it is none, or, as in lists of
// hosts to be blocked, stands for no station.
std::string canonical(const std::string& word) {
  ether_addr mac{};
  if (ether_aton_r(word.c_str(), &mac) != nullptr) return mac_text(mac.ether_addr_octet);
  unsigned char octets[16]{};
  for (const auto& [family, length] : {std::pair(AF_INET, 4U), std::pair(AF_INET6, 16U)}) {
    if (inet_pton(family, word.c_str(), octets) != 1) continue;
    const bool blank = std::ranges::all_of(octets, [](unsigned char octet) { return octet == 0; });
    return blank ? "" : address_text({octets, length});
  }
  return {};
}

// brief_of is the last part of a path: "dns" of "ether2.ip.udp.dns".
std::string brief_of(const std::string& name) {
  return name.substr(name.rfind('.') + 1);
}

}  // namespace

std::string Names::names_folder() {
  const char* folder = std::getenv("TALLYD_NAMES");
  return folder != nullptr && *folder != '\0' ? folder : kFolder;
}

Names::Names(std::string folder) : makers_({folder + "/oui.csv", kMakersFile}) {
  for (const auto& [file, kind] : kFiles) sources_.push_back({folder + '/' + file, kind});
  sources_.push_back({"/etc/ethers", NameKind::station});
  sources_.push_back({"/etc/hosts", NameKind::station});
}

void Names::refresh() {
  makers_.refresh();
  bool changed = !read_;
  for (Source& source : sources_) {
    const auto stamp = stamp_of(source.path);
    changed = changed || stamp != source.stamp;
    source.stamp = stamp;
  }
  if (!changed) return;
  read_ = true;
  numbers_.clear();
  stations_.clear();
  for (const Source& source : sources_) {
    for (const NameLine& line : read_name_file(source.path)) {
      source.kind == NameKind::station ? add_station(line)
                                       : add_number(numbers_[source.kind], line);
    }
  }
}

void Names::add_number(ByNumber& names, const NameLine& line) const {
  const auto number = parse_number(line.words[1]);
  if (!number || names.size() == kMostNames) return;
  const std::string& name = line.words[0];
  names.try_emplace(*number, Name{name, line.words[2].empty() ? brief_of(name) : line.words[2]});
}

void Names::add_station(const NameLine& line) {
  std::string address = canonical(line.words[0]);
  if (address.empty() || stations_.size() == kMostNames) return;
  stations_.try_emplace(std::move(address), line.words[1]);
}

const Names::Name* Names::numbered(NameKind kind, std::uint32_t number) const {
  const auto names = numbers_.find(kind);
  if (names == numbers_.end()) return nullptr;
  const auto found = names->second.find(number);
  return found == names->second.end() ? nullptr : &found->second;
}

std::string Names::station(const Octets& octets, bool mac) const {
  const std::string text = mac ? mac_text(octets.bytes) : address_text(octets);
  const auto found = stations_.find(text);
  if (found != stations_.end()) return found->second;
  if (!mac) return resolver_ ? resolver_->name(text) : "";
  const std::string maker = makers_.maker_of(octets.bytes);
  // The rest of the address tells the maker's devices from each other.
  return maker.empty() ? "" : maker + ' ' + mac_text(octets.bytes.subspan(3));
}

std::string Names::name_of(const RecordLayout& layout, const unsigned char* record,
                           std::size_t column) const {
  const NameKind kind = layout.columns[column].names;
  if (kind == NameKind::none || is_total(layout, record)) return {};
  const Cell cell = cell_of(layout, record, column);
  if (const auto* octets = std::get_if<Octets>(&cell)) {
    return station(*octets, layout.columns[column].kind == ColumnKind::mac);
  }
  const Name* name = numbered(kind, std::get<std::uint32_t>(cell));
  return name == nullptr ? "" : name->full;
}

std::string Names::label_of(const RecordLayout& layout, const unsigned char* record,
                            std::size_t column, bool brief) const {
  const NameKind kind = layout.columns[column].names;
  std::string value = cell_text(layout, record, column, NumberStyle::exact);
  std::string name = name_of(layout, record, column);
  if (name.empty()) return value;
  if (kind == NameKind::station) return name;
  if (kind != NameKind::protocol) return value + ' ' + name;
  return brief ? numbered(kind, number_at(record + layout.offsets[column]))->brief : name;
}

void Names::expect(const RecordLayout& layout, const unsigned char* record) const {
  for (std::size_t i = 0; resolver_ && i < layout.key_columns; ++i) {
    if (layout.columns[i].names == NameKind::station) (void)name_of(layout, record, i);  // asks
  }
}

void Names::await() const {
  if (resolver_) resolver_->wait(kPatience);
}

}  // namespace tally
