#include "minitapd/protocol_directory.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace minitapd {

namespace {

using namespace protocol;

constexpr std::array kBase = {
    Protocol{kEther2, Layer::link, "ether2", 0, 1},
    Protocol{kLlc, Layer::link, "llc", 0, 2},
    Protocol{kSnap, Layer::link, "snap", 0, 3},
    Protocol{kArp, Layer::network, "arp", kEther2, 0x0806},
    Protocol{kIp, Layer::network, "ip", kEther2, 0x0800},
    Protocol{kIpv6, Layer::network, "ipv6", kEther2, 0x86dd},
    Protocol{13, Layer::network, "lldp", kEther2, 0x88cc},
    Protocol{14, Layer::network, "eapol", kEther2, 0x888e},
    Protocol{15, Layer::network, "mpls", kEther2, 0x8847},
    Protocol{16, Layer::network, "pppoe", kEther2, 0x8864},
    Protocol{17, Layer::network, "slow", kEther2, 0x8809},
    Protocol{18, Layer::network, "ptp", kEther2, 0x88f7},
    Protocol{19, Layer::network, "stp", kLlc, 0x42},
    Protocol{20, Layer::network, "isis", kLlc, 0xfe},
    Protocol{21, Layer::network, "cdp", kSnap, 0x2000},
    Protocol{30, Layer::transport, "icmp", kIp, 1},
    Protocol{31, Layer::transport, "igmp", kIp, 2},
    Protocol{kTcpOverIp, Layer::transport, "tcp", kIp, 6},
    Protocol{kUdpOverIp, Layer::transport, "udp", kIp, 17},
    Protocol{34, Layer::transport, "gre", kIp, 47},
    Protocol{35, Layer::transport, "esp", kIp, 50},
    Protocol{36, Layer::transport, "ah", kIp, 51},
    Protocol{37, Layer::transport, "ospf", kIp, 89},
    Protocol{38, Layer::transport, "pim", kIp, 103},
    Protocol{39, Layer::transport, "vrrp", kIp, 112},
    Protocol{40, Layer::transport, "sctp", kIp, 132},
    Protocol{50, Layer::transport, "icmp6", kIpv6, 58},
    Protocol{kTcpOverIpv6, Layer::transport, "tcp", kIpv6, 6},
    Protocol{kUdpOverIpv6, Layer::transport, "udp", kIpv6, 17},
    Protocol{53, Layer::transport, "gre", kIpv6, 47},
    Protocol{54, Layer::transport, "esp", kIpv6, 50},
    Protocol{55, Layer::transport, "ospf", kIpv6, 89},
    Protocol{56, Layer::transport, "pim", kIpv6, 103},
    Protocol{57, Layer::transport, "sctp", kIpv6, 132},
};

// Applications are known by the port of the server. The same list stands behind both versions of
// IP: an application's local index is that of its group plus its place here.
struct Application {
  std::uint8_t place;
  std::string_view name;
  std::uint16_t port;
};

constexpr std::array kOverTcp = {
    Application{0, "ftp-data", 20}, Application{1, "ftp", 21},    Application{2, "ssh", 22},
    Application{3, "telnet", 23},   Application{4, "smtp", 25},   Application{5, "dns", 53},
    Application{6, "http", 80},     Application{7, "pop3", 110},  Application{8, "imap", 143},
    Application{9, "bgp", 179},     Application{10, "ldap", 389}, Application{11, "https", 443},
    Application{12, "smb", 445},    Application{13, "nfs", 2049},
};

constexpr std::array kOverUdp = {
    Application{0, "dns", 53},
    Application{1, "dhcp-server", 67},
    Application{2, "dhcp-client", 68},
    Application{3, "tftp", 69},
    Application{4, "ntp", 123},
    Application{5, "snmp", 161},
    Application{6, "trap", 162},
    Application{7, "quic", 443},
    Application{8, "syslog", 514},
    Application{9, "rip", 520},
    Application{10, "dhcp6-client", 546},
    Application{11, "dhcp6-server", 547},
    Application{12, "mdns", 5353},
    Application{13, "vxlan", 4789},
};

constexpr std::size_t kCount = kBase.size() + 2 * kOverTcp.size() + 2 * kOverUdp.size();
using Directory = std::array<Protocol, kCount>;

constexpr Directory make_directory() {
  Directory all{};
  std::size_t next = 0;
  for (const Protocol& base : kBase) all[next++] = base;
  const auto add = [&](const auto& applications, LocalIndex group, LocalIndex parent) {
    for (const Application& a : applications) {
      all[next++] = {static_cast<LocalIndex>(group + a.place), Layer::application, a.name, parent,
                     a.port};
    }
  };
  add(kOverTcp, 100, kTcpOverIp);
  add(kOverUdp, 130, kUdpOverIp);
  add(kOverTcp, 160, kTcpOverIpv6);
  add(kOverUdp, 190, kUdpOverIpv6);
  return all;
}

constexpr auto path_key(const Protocol& p) {
  return std::tuple(p.parent, p.selector);
}

constexpr Directory sorted_by_path() {
  Directory all = make_directory();
  std::ranges::sort(all, {}, path_key);
  return all;
}

constexpr Directory kByIndex = make_directory();
constexpr Directory kByPath = sorted_by_path();

static_assert(std::ranges::adjacent_find(kByIndex, std::ranges::greater_equal{},
                                         &Protocol::local_index) == kByIndex.end(),
              "local indexes are unique and ascending");
static_assert(std::ranges::adjacent_find(kByPath, {}, path_key) == kByPath.end(),
              "a selector means one protocol");

}  // namespace

std::span<const Protocol> protocols() {
  return kByIndex;
}

const Protocol* child_of(LocalIndex parent, std::uint16_t selector) {
  const std::tuple wanted(parent, selector);
  const auto* it = std::ranges::lower_bound(kByPath, wanted, {}, path_key);
  return it != kByPath.end() && path_key(*it) == wanted ? it : nullptr;
}

const Protocol* find_protocol(LocalIndex local_index) {
  const auto* it = std::ranges::lower_bound(kByIndex, local_index, {}, &Protocol::local_index);
  return it != kByIndex.end() && it->local_index == local_index ? it : nullptr;
}

std::string path_of(const Protocol& protocol) {
  const Protocol* parent = find_protocol(protocol.parent);
  return (parent != nullptr ? path_of(*parent) + "." : std::string()) + std::string(protocol.name);
}

}  // namespace minitapd
