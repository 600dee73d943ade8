#include "minitapd/capture.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "minitapd/unique_fd.h"

namespace minitapd {

namespace {

constexpr int kSnapLength = 256;   // link to transport header, options and tags included
constexpr int kReadTimeout = 100;  // ms that the kernel may gather frames for
constexpr int kFramesAtOnce = 4096;
constexpr std::chrono::seconds kRetry{5};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

// Runs a function inside a network namespace. Sockets that it opens stay there.
template <class Function>
void inside_namespace(const std::string& path, Function function) {
  if (path.empty()) return function();
  const UniqueFd own(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  const UniqueFd other(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!own) fail("/proc/self/ns/net");
  if (!other) fail(path);
  if (::setns(other.get(), CLONE_NEWNET) != 0) fail("cannot enter the namespace " + path);
  const auto go_back = [&own] {
    // Serving in the wrong namespace would be worse than not serving.
    if (::setns(own.get(), CLONE_NEWNET) != 0) std::terminate();
  };
  try {
    function();
  } catch (...) {
    go_back();
    throw;
  }
  go_back();
}

// The address of an interface of the namespace that the thread is in.
MacAddress station_of(const std::string& interface) {
  ifreq request{};
  interface.copy(std::begin(request.ifr_name), IFNAMSIZ - 1);
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket || ::ioctl(socket.get(), SIOCGIFHWADDR, &request) != 0) {
    fail("cannot read the address of " + interface);
  }
  MacAddress address{};
  std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
  return address;
}

void deliver(u_char* sink, const pcap_pkthdr* header, const u_char* bytes) {
  (*reinterpret_cast<FrameSink*>(sink))({bytes, header->caplen}, header->len);
}

u_char* as_user(FrameSink& sink) {
  return reinterpret_cast<u_char*>(&sink);
}

}  // namespace

void read_capture_file(const std::string& path, const FrameSink& sink) {
  std::array<char, PCAP_ERRBUF_SIZE> error{};
  const std::unique_ptr<pcap_t, decltype(&pcap_close)> file(
      pcap_open_offline(path.c_str(), error.data()), pcap_close);
  if (!file) throw std::runtime_error(path + ": " + error.data());
  if (const int link = pcap_datalink(file.get()); link != DLT_EN10MB) {
    const char* name = pcap_datalink_val_to_description_or_dlt(link);
    throw std::runtime_error(path + ": a capture of " + name + ", not of Ethernet frames");
  }
  std::uint64_t frames = 0;
  FrameSink counted = [&](std::span<const std::uint8_t> bytes, std::uint32_t wire_length) {
    ++frames;
    sink(bytes, wire_length);
  };
  if (pcap_loop(file.get(), -1, deliver, as_user(counted)) < 0) {
    (void)std::fprintf(stderr, "minitapd: %s: %s; counted the %llu frames before\n", path.c_str(),
                       pcap_geterr(file.get()), static_cast<unsigned long long>(frames));
  }
}

Capture::Capture(Settings settings, FrameSink sink)
    : settings_(std::move(settings)), sink_(std::move(sink)) {
  inside_namespace(settings_.netns, [this] { open(); });
}

void Capture::open() {
  const std::string& name = settings_.interface;
  std::array<char, PCAP_ERRBUF_SIZE> error{};
  Handle handle(pcap_create(name.c_str(), error.data()), pcap_close);
  if (!handle) throw std::runtime_error(name + ": " + error.data());
  pcap_set_snaplen(handle.get(), kSnapLength);
  pcap_set_promisc(handle.get(), settings_.promiscuous ? 1 : 0);
  pcap_set_timeout(handle.get(), kReadTimeout);
  const int status = pcap_activate(handle.get());
  if (status < 0) {
    const std::string kind = pcap_statustostr(status);
    std::string detail = pcap_geterr(handle.get());
    if (status == PCAP_ERROR_PERM_DENIED) detail = kind + ": capturing requires CAP_NET_RAW";
    throw std::runtime_error(name + ": " + (detail.empty() ? kind : detail));
  }
  if (status > 0) {
    (void)std::fprintf(stderr, "minitapd: %s: %s\n", name.c_str(), pcap_statustostr(status));
  }
  if (pcap_datalink(handle.get()) != DLT_EN10MB) {
    throw std::runtime_error(name + ": not an Ethernet interface");
  }
  if (pcap_setnonblock(handle.get(), 1, error.data()) != 0) {
    throw std::runtime_error(name + ": " + error.data());
  }
  if (settings_.opened) settings_.opened(station_of(name));
  interface_index_ = ::if_nametoindex(name.c_str());
  handle_ = std::move(handle);
}

int Capture::poll_fd() const {
  return handle_ ? pcap_get_selectable_fd(handle_.get()) : -1;
}

void Capture::work() {
  if (!handle_) {
    const auto now = std::chrono::steady_clock::now();
    if (now < retry_at_) return;
    retry_at_ = now + kRetry;
    try {
      inside_namespace(settings_.netns, [this] { open(); });
      (void)std::fprintf(stderr, "minitapd: %s: capturing again\n", settings_.interface.c_str());
    } catch (const std::runtime_error&) {
      return;  // still away, and that was said
    }
  }
  // Bounded, so that calls are served under any load.
  if (pcap_dispatch(handle_.get(), kFramesAtOnce, deliver, as_user(sink_)) < 0) {
    lose(pcap_geterr(handle_.get()));
  }
}

void Capture::lose(const std::string& why) {
  (void)std::fprintf(stderr, "minitapd: %s: %s\n", settings_.interface.c_str(), why.c_str());
  dropped_before_ = dropped_frames();
  handle_.reset();
  retry_at_ = std::chrono::steady_clock::now() + kRetry;
}

std::uint32_t Capture::dropped_frames() const {
  pcap_stat stat{};
  if (!handle_ || pcap_stats(handle_.get(), &stat) != 0) return dropped_before_;
  return dropped_before_ + stat.ps_drop + stat.ps_ifdrop;
}

}  // namespace minitapd
