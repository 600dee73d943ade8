#include "bench/supervisor/contenders.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "bench/wire_bytes.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "daemon/base/paths.h"
#include "daemon/supervisor_kinds.h"
#include "files/file_format.h"
#include "files/unique_fd.h"
#include "snmp/getport.h"
#include "snmp/values.h"
#include "supervisor/supclient.h"

namespace tally::bench {
namespace {

constexpr char kHost[] = "127.0.0.1";

sockaddr_in address_of(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(kHost);
  return address;
}

std::vector<std::string> arguments(std::uint32_t rows, bool idle, std::uint32_t delay) {
  std::vector<std::string> words{
      "--port", "0", "--rows", std::to_string(rows), "--delay", std::to_string(delay)};
  if (idle) words.emplace_back("--idle");
  return words;
}

}  // namespace

std::vector<Step> steps_of(const Work& work) {
  const bool ether = work.type == kEtherStats;
  std::vector<Step> steps;
  if (work.refresh) {
    for (std::uint32_t row = 0; row <= work.rows; ++row) {
      if (ether && row > 0) steps.push_back({RequestKind::state, row});
      steps.push_back({ether ? RequestKind::row_walk : RequestKind::if_walk, row});
    }
  }
  for (std::uint32_t row = 1; !work.idle && row <= work.rows; ++row) {
    steps.push_back({ether ? RequestKind::ether_counters : RequestKind::if_counters, row});
  }
  return steps;
}

CannedSupervisor::CannedSupervisor(std::uint32_t rows, bool idle, std::uint32_t delay)
    : process_(arguments(rows, idle, delay), "canned_supervisor"),
      fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = address_of(port());
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("no canned supervisor");
  }
}

CannedSupervisor::~CannedSupervisor() {
  close(fd_);
}

RequestCounts CannedSupervisor::order(std::uint8_t byte) {
  RequestCounts counts{};
  std::uint8_t report[sizeof counts];
  if (send(fd_, &byte, 1, 0) != 1 || recv(fd_, report, sizeof report, 0) != sizeof report) {
    throw std::runtime_error("the canned supervisor does not obey");
  }
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = load_u32(report + 4 * i);
  return counts;
}

// The transport looks its port up once, before the daemon's own start tells it port 161.
PolledKind::PolledKind(std::uint16_t port, const Work& work) : work_(work) {
  setenv("ZN_SNMP_TEST_PORT", std::to_string(port).c_str(), 1);
  if (GetSNMPPort() != port) throw std::runtime_error("this process has polled another port");
  std::strcpy(nmp_address, kHost);
  std::strcpy(nmp_community, kDefaultNmpCommunity);
  SupervisorKind& kind = supervisor_kind(work.type);
  kind.initialise();
  if (start_snmp_client() != 0) throw std::runtime_error("no SNMP client");
  kind.refresh_rows();
}

PolledKind::~PolledKind() {
  supervisor_kind(work_.type).clean_up();
  stop_snmp_client();
}

void PolledKind::prepare() {
  const auto path = collection_path(work_.type, 0, FileKind::last);
  const UniqueFd file(open(path.text, O_WRONLY | O_CLOEXEC));
  if (!file) return;  // no sample yet, or a kind that keeps none in files
  const std::int32_t sample_time = now_seconds() - kInterval;
  if (pwrite(file.get(), &sample_time, sizeof sample_time, offsetof(FileHeader, sample_time)) !=
      static_cast<ssize_t>(sizeof sample_time)) {
    throw std::runtime_error("cannot write the last file");
  }
}

void PolledKind::run() {
  SupervisorKind& kind = supervisor_kind(work_.type);
  if (work_.refresh) kind.refresh_rows();
  const std::int32_t now = now_seconds();
  if (kind.hooks.poll(now, now - kInterval) != 1) throw std::runtime_error("the poll failed");
}

EchoClient::EchoClient(std::uint16_t port, const Work& work)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), port_(port) {
  for (const Step& step : steps_of(work)) {
    // Heads whose lengths have two bytes, around a request id of two bytes.
    const auto rest = encoded_request(step.kind, step.row);
    const std::string community = kDefaultNmpCommunity;
    const auto head = [](std::uint8_t tag, std::size_t length) {
      return std::vector<std::uint8_t>{tag, 0x82, static_cast<std::uint8_t>(length >> 8),
                                       static_cast<std::uint8_t>(length)};
    };
    constexpr std::uint8_t kId[] = {INTEGER_TYPE, 2, 0x30, 0x39};
    std::vector<std::uint8_t> opening{INTEGER_TYPE, 1, 1, OCTET_STRING_TYPE,
                                      static_cast<std::uint8_t>(community.size())};
    opening.insert(opening.end(), community.begin(), community.end());
    const std::size_t content = sizeof kId + rest.size();
    const bool walks = request_shape(step.kind).walks;
    std::vector<std::uint8_t> request = head(SEQUENCE_TYPE, opening.size() + 4 + content);
    const auto append = [&request](const auto& bytes) {
      request.insert(request.end(), std::begin(bytes), std::end(bytes));
    };
    append(opening);
    append(
        head(static_cast<std::uint8_t>(walks ? GET_NEXT_REQUEST_PDU : GET_REQUEST_PDU), content));
    append(kId);
    append(rest);
    requests_.push_back(std::move(request));
  }
}

EchoClient::~EchoClient() {
  close(fd_);
}

void EchoClient::run() {
  const sockaddr_in address = address_of(port_);
  std::uint8_t answer[2048];
  for (const auto& request : requests_) {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    if (sendto(fd_, request.data(), request.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               sizeof address) < 0 ||
        recvfrom(fd_, answer, sizeof answer, 0, reinterpret_cast<sockaddr*>(&sender), &length) <=
            0) {
      throw std::runtime_error("no echo");
    }
  }
}

}  // namespace tally::bench
