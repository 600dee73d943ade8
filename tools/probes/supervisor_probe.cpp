// One SNMPv2c question to the supervisor, by the project's own codec on a socket of its own: the
// library's transport ends the process when a host is unknown.
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>

#include "daemon/base/paths.h"
#include "files/unique_fd.h"
#include "probes/daemon_probe.h"
#include "snmp/bld_pkt.h"
#include "snmp/free_lib.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp/v1_msg.h"
#include "snmp/v2c_cmsg.h"
#include "snmp/zn_msg.h"

namespace tally {
namespace {

constexpr int kTries = 2;
constexpr std::chrono::milliseconds kTimeout{2000};
constexpr std::uint32_t kSysUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};

const SnmpVersionTable kVersions = {
    1, {1}, {nullptr}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

UniqueFd connect_to(const std::string& address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), kNmpPort, &hints, &found) != 0) return UniqueFd();
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd || connect(fd.get(), list->ai_addr, list->ai_addrlen) != 0) return UniqueFd();
  return fd;
}

// make_request returns the encoded message; nothing when there is no memory or the community is
// too long for a packet.
SnmpMessagePtr make_request(const std::string& community, std::int32_t id) {
  const PduPtr pdu(MakePdu(GET_REQUEST_PDU, id, 0, 0, nullptr, nullptr, 0, 0, 0));
  const OidPtr name(MakeOID(kSysUpTime, std::size(kSysUpTime)));
  if (!pdu || !name || LinkVarBind(pdu.get(), MakeVarBindWithNull(name.get(), nullptr)) != 0 ||
      BuildPdu(pdu.get()) != 0) {
    return nullptr;
  }
  OctetStringPtr text(MakeOctetString(reinterpret_cast<const unsigned char*>(community.data()),
                                      static_cast<std::int32_t>(community.size())));
  if (!text) return nullptr;
  SnmpMessagePtr message(ZnCreateV2cSnmpMessage(text.get(), nullptr));
  if (!message) return nullptr;
  (void)text.release();  // the message's now
  if (ZnBuildSnmpMessage(message.get(), pdu.get(), &kVersions) != 0) return nullptr;
  return message;
}

// read_answer returns the up-time, if the packet is the answer.
std::optional<std::uint32_t> read_answer(const unsigned char* bytes, std::int32_t length,
                                         std::int32_t id) {
  const SnmpMessagePtr message(ZnParseSnmpMessage(&kVersions, nullptr, nullptr, bytes, length));
  if (!message || message->packlet == nullptr) return std::nullopt;
  const PduPtr pdu(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
  if (!pdu || pdu->type != RESPONSE_PDU || pdu->request_id != id) return std::nullopt;
  const VarBind* binding = pdu->var_bind_list;
  const bool has_value = binding != nullptr && value_kind(binding->type) == ValueKind::unsigned32;
  return has_value ? binding->value.ul_value : 0;
}

}  // namespace

SupervisorAnswer probe_supervisor(const std::string& address, const std::string& community) {
  using Clock = std::chrono::steady_clock;
  const UniqueFd fd = connect_to(address);
  if (!fd) return {SupervisorState::unknown_host};
  const std::int32_t id = MakeReqId();
  const SnmpMessagePtr request = make_request(community, id);
  if (!request) return {SupervisorState::refused};
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const auto length = static_cast<std::size_t>(request->packlet->length);
    (void)send(fd.get(), request->packlet->octet_ptr, length, 0);  // silence tells, too
    const auto deadline = Clock::now() + kTimeout;
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      pollfd socket{fd.get(), POLLIN, 0};
      if (left.count() <= 0 || poll(&socket, 1, static_cast<int>(left.count())) == 0) break;
      unsigned char packet[2048];
      const ssize_t got = recv(fd.get(), packet, sizeof packet, 0);
      if (got < 0 && errno == ECONNREFUSED) return {SupervisorState::refused};
      if (got <= 0) continue;
      const auto up_time = read_answer(packet, static_cast<std::int32_t>(got), id);
      if (up_time) return {SupervisorState::answers, *up_time};
    }
  }
  return {SupervisorState::silent};
}

}  // namespace tally
