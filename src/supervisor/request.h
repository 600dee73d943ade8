// One request to the supervisor and its response (SNMPv2c, RFC 1901, RFC 3416).
#pragma once

#include <cstdint>

#include "snmp/free_lib.h"

namespace tally {

// How a request ended.
inline constexpr std::int32_t kRequestFailed = -1;   // has been logged
inline constexpr std::int32_t kRequestTimedOut = 1;  // no response within 2 seconds

// snmp_request sends a PDU that BuildPdu has encoded, once, and waits for the response with the
// same request id. Returns that response with status 2, or null with status 1 or -1 (logs).
//
// Datagrams with another request id are dropped and the 2 seconds start again, so that a stale
// answer costs nothing. After 1,000 of them, or a minute, the request has timed out. The sender and
// the community of an answer are not checked.
[[nodiscard]] PduPtr snmp_request(const Pdu& request, const char* community, std::int32_t& status);

}  // namespace tally
