#include "supervisor/request.h"

#include <ctime>

#include "daemon/base/log.h"
#include "daemon/base/stop.h"
#include "snmp/make_lib.h"
#include "snmp/prse_pkt.h"
#include "snmp/snmpio.h"
#include "snmp/v1_msg.h"
#include "snmp/v2c_cmsg.h"
#include "snmp/zn_msg.h"

namespace tally {
namespace {

constexpr int kMostForeignDatagrams = 1000;
constexpr std::time_t kLongestWait = 60;  // seconds

// SNMPv2c, number 1 on the wire, is the only version spoken. Its messages look like version 1's.
constexpr SnmpVersionTable kVersions = {
    1, {1}, {nullptr}, {ZnParseV1SnmpMessage}, {ZnBuildV1SnmpMessage}};

// Logs a failure, which ends the request.
PduPtr fail(std::int32_t& status, const char* text) {
  log_debug("%s", text);
  status = kRequestFailed;
  return nullptr;
}

// Sends the request. Null, or the text of what went wrong.
const char* send(const Pdu& request, const char* community) {
  OctetStringPtr text(MakeOctetStringFromText(community));
  if (!text) return "Error 1 performing SNMP request.";
  const SnmpMessagePtr message(ZnCreateV2cSnmpMessage(text.get(), nullptr));
  if (!message) return "Error 2 performing SNMP request.";
  (void)text.release();  // adopted
  if (ZnBuildSnmpMessage(message.get(), &request, &kVersions) != 0) {
    return "Error 3 performing SNMP request.";
  }
  const OctetString& packet = *message->packlet;
  if (SendToIO(snmpio::fd, packet.octet_ptr, packet.length) != 1) {
    return "Error 4 performing SNMP request.";
  }
  return nullptr;
}

std::time_t monotonic_seconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

}  // namespace

PduPtr snmp_request(const Pdu& request, const char* community, std::int32_t& status) {
  status = 0;
  if (const char* const failure = send(request, community)) return fail(status, failure);
  const std::time_t started = monotonic_seconds();
  for (int foreign = 0; foreign < kMostForeignDatagrams; ++foreign) {
    status = GetResponse();
    if (status == kRequestTimedOut) break;
    if (status == kRequestFailed) return fail(status, "Error 5 performing SNMP request.");
    const SnmpMessagePtr message(
        ZnParseSnmpMessage(&kVersions, nullptr, nullptr, snmpio::packet, snmpio::packet_len));
    if (!message) return fail(status, "Error 6 performing SNMP request.");
    if (!message->packlet) return fail(status, "NULL packlet error performing SNMP request.");
    PduPtr response(ZnParsePdu(message->packlet->octet_ptr, message->packlet->length));
    if (!response) return fail(status, "Error 7 performing SNMP request.");
    // A trap has its enterprise where other PDUs have their request id.
    if (response->type != TRAP_PDU && response->request_id == request.request_id) return response;
    log_debug("Error 8 performing SNMP request.");
    if (stopping() || monotonic_seconds() - started >= kLongestWait) break;
  }
  log_debug("Timeout error performing SNMP request.");
  status = kRequestTimedOut;
  return nullptr;
}

}  // namespace tally
